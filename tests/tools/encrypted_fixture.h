// An encrypted store with texts that must not appear in any file.

#ifndef TESTS_TOOLS_ENCRYPTED_FIXTURE_H_
#define TESTS_TOOLS_ENCRYPTED_FIXTURE_H_

#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

// Texts of its messages and conversations. All begin with kPlanted.
inline constexpr const char* kPlanted = "planted";

// The files below a folder that contain a planted text or the beginning of a plain database.
Rows plain_files(const std::string& folder);

// The test's own connections to the store and to new_store() use the key.
class EncryptedTest : public ToolTest {
 protected:
  EncryptedTest();
  // Skips the test if this SQLite has no cipher.
  void SetUp() override;
  void TearDown() override;

  // Makes an encrypted store of 300 messages in three conversations.
  void make_store();
  // The same without a key.
  void make_plain_store();

  // From now on, the test's own connections to this folder use no key.
  static void forget_key(const std::string& store_folder);

  Outcome run_with(const std::string& key, const Arguments& arguments,
                   const std::string& input = "");

  // The commands that open a store, with arguments that succeed on it. Those that make something
  // make new_store().
  std::vector<Arguments> commands() const;
  static bool is_export(const Arguments& arguments) { return arguments[0] == "export"; }

  // Expects a command to fail with a line that contains `words`, to leave the store's folder as it
  // is, and to make nothing.
  void expect_refused(const Arguments& arguments, const std::string& key, const std::string& words);

  // Expects that no file of the test's folder and of the temporary ones is plain.
  void expect_no_plain_file(const std::string& after) const;

  const std::string& key() const { return key_; }      // the file with the store's key
  const std::string& other() const { return other_; }  // the file with another one
  std::string new_store() const { return folder.file("new"); }

 private:
  void set_key(const std::string& store_folder) const;

  std::string key_;
  std::string other_;
  std::string log_;
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_ENCRYPTED_FIXTURE_H_
