// corvan, the command-line tool: imports conversation logs into a store, looks into stores, checks,
// repairs and rescues them, and brings their content out.

#include <sys/stat.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <new>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/abandoned_folders.h"
#include "tools/store/pending_output.h"
#include "tools/ui/error.h"
#include "tools/ui/output.h"
#include "tools/ui/table.h"

namespace {

using namespace corvan_tool;

int run(int argc, char** argv) {
  CommandLine line;
  add_import(line);
  add_look(line);
  add_search(line);
  add_stats(line);
  add_check(line);
  add_verify(line);
  add_salvage(line);
  add_backup(line);
  add_compact(line);
  add_index(line);
  add_export(line);
  add_restore(line);
  const int status = line.run(argc, argv);
  close_standard_output();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that leaves early must not keep what is unfinished from being removed.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);  // nor must a file that may not grow: its write fails instead
  umask(umask(0) | S_IRWXG | S_IRWXO);  // what is made holds messages: it is its owner's alone
  std::ios::sync_with_stdio(false);     // writes standard output in blocks
  remove_unfinished_when_interrupted();
  remove_abandoned_folders();
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::cerr << "corvan: out of memory; the largest message must fit in it several times\n";
    return kFailure;
  } catch (const std::exception& error) {
    std::cerr << "corvan: " << printable(error.what()) << '\n';
    return kFailure;
  }
}
