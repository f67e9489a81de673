#include <string>

#include "addons/encryption/store_encryption.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/commands/conversion.h"
#include "tools/store/key.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

struct RekeyOptions {
  std::string folder;
  KeyOptions new_key;
  bool json = false;
};

int run_rekey(const RekeyOptions& options) {
  if (!used_key().is_valid()) {
    throw ToolError("rekey: name the present key with --key-file or --passphrase");
  }
  if (!options.new_key.is_given()) {
    throw ToolError("rekey: name the new key with --new-key-file or --new-passphrase");
  }
  const Corvan::StoreKey new_key = key_from(options.new_key, "new passphrase", KeyAge::kNew);
  return convert_and_report(options.folder, options.json,
                            {"encrypted with the new key", "use 'corvan encrypt'"},
                            [&new_key](const cvrtc::Pathname& folder) {
                              return Corvan::rekey_store(folder, used_key(), new_key);
                            });
}

constexpr const char* kRekeyResult =
    "--key-file or --passphrase gives the present key, --new-key-file or --new-passphrase the new\n"
    "one. The store must be closed. A copy with the new key is made beside it, compared with it row\n"
    "by row, and put in its place; the disk needs room for it. An interrupt or a power loss leaves\n"
    "the old store or the new one; the next 'rekey' removes an unfinished copy, corvan.converting.\n"
    "Backups and other copies keep the old key.\n"
    "With --json: an object with changed (false if the store already had the new key), file_bytes and\n"
    "seconds.\n";

}  // namespace

void add_rekey(CommandLine& line) {
  auto [command, options] =
      line.add<RekeyOptions>("rekey", "Encrypt a store with another key", kRekeyResult, run_rekey);
  command.key(options.new_key, "new", "the store from now on");
}

}  // namespace corvan_tool
