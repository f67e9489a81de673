// Encrypted stores. With CORVAN_TEST_ENCRYPTED=1 in the environment, the stores of all temporary
// folders have one key, and so have the other databases that tests create in these folders. This
// works in programs that link corvan_test_support; without a cipher in SQLite, no store opens. In
// other programs, and without the variable, nothing here has an effect.

#ifndef TESTS_SUPPORT_ENCRYPTION_H_
#define TESTS_SUPPORT_ENCRYPTION_H_

#include <string>

struct sqlite3;

namespace corvan_test {

// What temporary_folder.cpp and rows.cpp call.
struct Encryption {
  void (*give_key)(const std::string& folder);
  void (*take_key)(const std::string& folder);
  // Unlocks a connection that the test has just opened, unless `file` is a store's, which is
  // unlocked already, or in plain text.
  void (*unlock)(sqlite3* connection, const std::string& file);
};

// Null if the stores are not encrypted. encryption.cpp sets it when the program starts.
inline const Encryption* encryption = nullptr;

inline bool stores_are_encrypted() {
  return encryption != nullptr;
}

}  // namespace corvan_test

// Skips the rest of the test, with the reason, if its stores are encrypted.
#define SKIP_IF_ENCRYPTED(reason) \
  if (corvan_test::stores_are_encrypted()) GTEST_SKIP() << "encrypted stores: " << (reason)

#endif  // TESTS_SUPPORT_ENCRYPTION_H_
