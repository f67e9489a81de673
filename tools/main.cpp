// corvan, the command-line tool: imports conversation logs into a store, looks into stores, checks,
// repairs and rescues them, and brings their content out.

#include <sys/stat.h>

#include <csignal>
#include <exception>
#include <iostream>

#include "tools/backup.h"
#include "tools/command_line.h"
#include "tools/commands.h"
#include "tools/compact.h"
#include "tools/export.h"
#include "tools/import.h"
#include "tools/index.h"
#include "tools/restore.h"
#include "tools/salvage.h"
#include "tools/search.h"
#include "tools/stats.h"
#include "tools/text_table.h"
#include "tools/tool_error.h"
#include "tools/unfinished.h"
#include "tools/verify.h"

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
  if (!std::cout.flush()) throw ToolError("standard output: cannot be written");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that leaves early must not keep what is unfinished from being removed.
  std::signal(SIGPIPE, SIG_IGN);
  umask(umask(0) | S_IRWXG | S_IRWXO);  // what is made holds messages: it is its owner's alone
  std::ios::sync_with_stdio(false);     // writes standard output in blocks
  remove_unfinished_when_interrupted();
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "corvan: " << printable(error.what()) << '\n';
    return kFailure;
  }
}
