#include <memory>
#include <string>
#include <string_view>

#include "addons/encryption/secret.h"
#include "addons/encryption/store_keys.h"

namespace Corvan {

namespace {

using encryption::Secret;
using encryption::wipe;

// Ciphers take these for the beginning of raw bytes.
bool looks_raw(std::string_view text) {
  return text.substr(0, 4) == "raw:" || text.substr(0, 2) == "x'" || text.substr(0, 2) == "X'";
}

bool is_passphrase(std::string_view text) {
  return !text.empty() && text.size() <= StoreKey::kLongestPassphrase &&
         text.find('\0') == std::string_view::npos && !looks_raw(text);
}

// Two quotation marks in an SQL literal stand for one.
void append_quoted(Secret& secret, std::string_view text) {
  secret.append("'");
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\'') secret.append("'");
    secret.append(text.substr(i, 1));
  }
  secret.append("'");
}

constexpr std::string_view kStatement = "pragma key=";

}  // namespace

StoreKey::StoreKey(Bytes& bytes) {
  const auto secret = std::make_shared<Secret>(kStatement.size() + 2 * kSize + 5);
  secret->append(kStatement);
  secret->append("\"x'");
  secret->append_hex(bytes.data(), bytes.size());
  secret->append("'\"");
  secret_ = secret;
  wipe(bytes.data(), bytes.size());
}

StoreKey StoreKey::from_passphrase(std::string& text) {
  StoreKey key;
  if (is_passphrase(text)) {
    const auto secret = std::make_shared<Secret>(kStatement.size() + 2 * text.size() + 2);
    secret->append(kStatement);
    append_quoted(*secret, text);
    key.secret_ = secret;
  }
  wipe(text.data(), text.size());
  return key;
}

}  // namespace Corvan
