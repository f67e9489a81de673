#include <string>

#include "addons/encryption/store_encryption.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/commands/conversion.h"
#include "tools/store/key.h"

namespace corvan_tool {

namespace {

struct DecryptOptions {
  std::string folder;
  bool json = false;
};

int run_decrypt(const DecryptOptions& options) {
  return convert_and_report(options.folder, options.json, {"decrypted", ""},
                            [](const cvrtc::Pathname& folder) {
                              const Corvan::StoreKey& key = used_key();
                              if (key.is_valid()) Corvan::StoreKeys::set(folder, key);
                              return Corvan::decrypt_store(folder);
                            });
}

constexpr const char* kDecryptResult =
    "--key-file or --passphrase gives the store's key. Afterwards, everybody who can open the file\n"
    "can read its messages. The store must be closed. A copy that is not encrypted is made beside it,\n"
    "compared with it row by row, and put in its place; the disk needs room for it. An interrupt or a\n"
    "power loss leaves the old store or the new one; the next 'decrypt' removes an unfinished copy,\n"
    "corvan.converting.\n"
    "With --json: an object with changed (false if the store was not encrypted), file_bytes and\n"
    "seconds.\n";

}  // namespace

void add_decrypt(CommandLine& line) {
  line.add<DecryptOptions>("decrypt", "Decrypt a store", kDecryptResult, run_decrypt);
}

}  // namespace corvan_tool
