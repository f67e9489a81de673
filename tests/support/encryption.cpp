#include "tests/support/encryption.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "addons/encryption/store_keys.h"

namespace corvan_test {

namespace {

using Corvan::KeyRefusal;
using Corvan::StoreKey;
using Corvan::StoreKeys;

const StoreKey& test_key() {
  static const StoreKey key = [] {
    StoreKey::Bytes bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes.at(i) = static_cast<unsigned char>(7 * i + 1);
    }
    return StoreKey(bytes);
  }();
  return key;
}

void give_key(const std::string& folder) {
  if (!StoreKeys::set(cvrtc::Pathname(folder), test_key())) {
    throw std::runtime_error("CORVAN_TEST_ENCRYPTED: the key was not accepted");
  }
}

void take_key(const std::string& folder) {
  StoreKeys::forget(cvrtc::Pathname(folder));
}

bool is_store(const std::string& file) {
  const std::string name = std::filesystem::path(file).filename().string();
  return name == "corvan" || name.rfind("corvan-", 0) == 0;
}

void unlock(sqlite3* connection, const std::string& file) {
  if (is_store(file) || file == ":memory:") return;
  const KeyRefusal refusal = StoreKeys::unlock(connection, test_key());
  if (refusal == KeyRefusal::kNone || refusal == KeyRefusal::kNotEncrypted) return;
  throw std::runtime_error("cannot unlock " + file + ": " + Corvan::to_text(refusal));
}

bool start() {
  static constexpr Encryption calls = {give_key, take_key, unlock};
  const char* const value = std::getenv("CORVAN_TEST_ENCRYPTED");
  if (value != nullptr && std::string(value) == "1") encryption = &calls;
  return true;
}

[[maybe_unused]] const bool started = start();

}  // namespace

}  // namespace corvan_test
