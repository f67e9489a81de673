#include <string>

#include "addons/encryption/store_encryption.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/commands/conversion.h"
#include "tools/store/key.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

struct EncryptOptions {
  std::string folder;
  bool json = false;
};

int run_encrypt(const EncryptOptions& options) {
  if (!used_key().is_valid()) {
    throw ToolError("encrypt: name the new key with --key-file or --passphrase");
  }
  return convert_and_report(
      options.folder, options.json, {"encrypted", "to change the key, use 'corvan rekey'"},
      [](const cvrtc::Pathname& folder) { return Corvan::encrypt_store(folder, used_key()); });
}

constexpr const char* kEncryptResult =
    "--key-file or --passphrase gives the new key. Without the key, nobody can read the store again.\n"
    "The store must be closed. An encrypted copy is made beside it, compared with it row by row, and\n"
    "put in its place; the disk needs room for it. An interrupt or a power loss leaves the old store\n"
    "or the new one; the next 'encrypt' removes an unfinished copy, corvan.converting. Where the file\n"
    "system writes in place, the old file's bytes are overwritten.\n"
    "With --json: an object with changed (false if the store was already encrypted with this key),\n"
    "file_bytes and seconds.\n";

}  // namespace

void add_encrypt(CommandLine& line) {
  line.add<EncryptOptions>("encrypt", "Encrypt a store", kEncryptResult, run_encrypt,
                           "the store's folder", KeyAge::kNew);
}

}  // namespace corvan_tool
