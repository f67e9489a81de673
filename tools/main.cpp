// corvan, the command-line tool: imports conversation logs into a store; shows, checks, repairs,
// rescues, exports and encrypts stores.

#include <sys/stat.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <new>

#include "addons/encryption/store_keys.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
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

int run(int argc, char** argv) {
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
  const int status = line.run(argc, argv);
  close_standard_output();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // Writes fail instead, so that unfinished output is removed.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  umask(umask(0) | S_IRWXG | S_IRWXO);  // new files hold messages: only their owner may read them
  std::ios::sync_with_stdio(false);     // standard output is written in blocks
  remove_unfinished_when_interrupted();
  remove_abandoned_folders();
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::cerr << "corvan: out of memory; a message needs several times its size\n";
    return kFailure;
  } catch (const std::exception& error) {
    std::cerr << "corvan: " << printable(error.what()) << '\n';
    return kFailure;
  }
}
