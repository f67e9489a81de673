// corvan, the command-line tool: imports conversation logs into a store; shows, checks, repairs,
// rescues, exports and encrypts stores.

#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "addons/encryption/store_keys.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/platform/process.h"
#include "tools/store/abandoned_folders.h"
#include "tools/store/interrupt.h"
#include "tools/store/library_store.h"
#include "tools/ui/error.h"
#include "tools/ui/output.h"
#include "tools/ui/terminal_text.h"

namespace {

using namespace corvan_tool;

// Without this, the library would delete an encrypted store as a damaged one.
void guard_encrypted_stores() {
  silence_library();
  if (!Corvan::StoreKeys::install()) throw ToolError("SQLite does not register extensions");
}

int run(const std::vector<std::string>& arguments) {
  guard_encrypted_stores();
  CommandLine line;
  add_import(line);
  add_list(line);
  add_history(line);
  add_unread(line);
  add_show(line);
  add_search(line);
  add_stats(line);
  add_check(line);
  add_verify(line);
  add_salvage(line);
  add_backup(line);
  add_compact(line);
  add_index(line);
  add_search_index(line);
  add_export(line);
  add_restore(line);
  add_encrypt(line);
  add_decrypt(line);
  add_rekey(line);
  const int status = line.run(arguments);
  close_standard_output();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  set_up_process();
  std::ios::sync_with_stdio(false);  // standard output is written in blocks
  remove_unfinished_when_interrupted();
  remove_abandoned_folders();
  try {
    return run(program_arguments(argc, argv));
  } catch (const std::bad_alloc&) {
    std::cerr << "corvan: out of memory; a message needs several times its size\n";
    return kFailure;
  } catch (const std::exception& error) {
    std::cerr << "corvan: " << printable(error.what()) << '\n';
    return kFailure;
  }
}
