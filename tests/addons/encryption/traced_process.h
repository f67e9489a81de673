// Runs work in a child process, call by call, and kills it before a chosen one.

#ifndef TESTS_ADDONS_ENCRYPTION_TRACED_PROCESS_H_
#define TESTS_ADDONS_ENCRYPTION_TRACED_PROCESS_H_

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace corvan_test {

// A system call that changes a file or a folder, or makes a change durable.
struct FileCall {
  std::string name;  // "write", "sync", "rename", "unlink", "create", "truncate", "mode"
  std::string path;  // of the file as it is called then; "... (deleted)" if it has no name any more
};

struct TracedRun {
  std::vector<FileCall> calls;  // those that began before the process ended
  bool has_finished = false;    // it was not killed
  int status = 0;               // of a process that has finished
};

// Whether this system lets a process trace its child.
bool can_trace();

// Runs `work` in a child process, which ends with its result, and kills it when it begins the file
// call with this number, counted from 0. The call is not carried out.
TracedRun run_traced(const std::function<int()>& work, std::size_t kill_at);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_TRACED_PROCESS_H_
