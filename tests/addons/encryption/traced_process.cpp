#include "tests/addons/encryption/traced_process.h"

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace corvan_test {

namespace {

using SyscallInfo = struct __ptrace_syscall_info;

// Where a call names its file.
enum class Names { kDescriptor, kFirstPath, kSecondPath };

struct Kind {
  std::uint64_t number;
  const char* name;
  Names names;
};

const std::vector<Kind>& kinds() {
  static const std::vector<Kind> all = {
    {SYS_write, "write", Names::kDescriptor},
    {SYS_pwrite64, "write", Names::kDescriptor},
    {SYS_fsync, "sync", Names::kDescriptor},
    {SYS_fdatasync, "sync", Names::kDescriptor},
    {SYS_ftruncate, "truncate", Names::kDescriptor},
    {SYS_fallocate, "write", Names::kDescriptor},
    {SYS_fchmod, "mode", Names::kDescriptor},
    {SYS_fchown, "mode", Names::kDescriptor},
    {SYS_openat, "create", Names::kSecondPath},
    {SYS_unlinkat, "unlink", Names::kSecondPath},
    {SYS_renameat2, "rename", Names::kSecondPath},
#if defined(SYS_renameat)
    {SYS_renameat, "rename", Names::kSecondPath},
#endif
#if defined(SYS_open)
    {SYS_open, "create", Names::kFirstPath},
    {SYS_unlink, "unlink", Names::kFirstPath},
    {SYS_rename, "rename", Names::kFirstPath},
#endif
  };
  return all;
}

// A text in the child's memory. It is read a word at a time because the next page may be missing.
std::string text_at(pid_t child, std::uint64_t address) {
  std::string text;
  for (;; ++address) {
    char byte = 0;
    iovec here{&byte, 1};
    iovec there{reinterpret_cast<void*>(address), 1};
    if (process_vm_readv(child, &here, 1, &there, 1, 0) != 1 || byte == '\0') return text;
    text += byte;
  }
}

std::string descriptor_path(pid_t child, std::uint64_t descriptor) {
  std::error_code gone;
  const std::string link =
      "/proc/" + std::to_string(child) + "/fd/" + std::to_string(static_cast<int>(descriptor));
  return std::filesystem::read_symlink(link, gone).string();
}

std::string path_of(pid_t child, const Kind& kind, const SyscallInfo& info) {
  switch (kind.names) {
    case Names::kDescriptor:
      return descriptor_path(child, info.entry.args[0]);
    case Names::kFirstPath:
      return text_at(child, info.entry.args[0]);
    case Names::kSecondPath:
      return text_at(child, info.entry.args[1]);
  }
  return std::string();
}

// The call that the child is about to make, if it is one of ours.
std::optional<FileCall> file_call(pid_t child) {
  SyscallInfo info{};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0) return std::nullopt;
  if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return std::nullopt;
  const auto kind = std::find_if(kinds().begin(), kinds().end(),
                                 [&](const Kind& one) { return one.number == info.entry.nr; });
  if (kind == kinds().end()) return std::nullopt;
  const std::size_t flags = kind->names == Names::kSecondPath ? 2 : 1;
  const bool opens = std::string(kind->name) == "create";
  if (opens && (info.entry.args[flags] & O_CREAT) == 0) return std::nullopt;
  return FileCall{kind->name, path_of(child, *kind, info)};
}

pid_t start(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child != 0) return child;
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  raise(SIGSTOP);
  _exit(work());
}

// Continues until the next call begins or ends. False if the process has ended.
bool next_stop(pid_t child, int& status) {
  ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  return waitpid(child, &status, 0) == child && WIFSTOPPED(status);
}

void kill_child(pid_t child) {
  int status = 0;
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
}

}  // namespace

TracedRun run_traced(const std::function<int()>& work, std::size_t kill_at) {
  TracedRun run;
  int status = 0;
  const pid_t child = start(work);
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD);
  while (next_stop(child, status)) {
    const std::optional<FileCall> call = file_call(child);
    if (!call) continue;
    if (run.calls.size() == kill_at) {
      kill_child(child);
      return run;
    }
    run.calls.push_back(*call);
  }
  run.has_finished = WIFEXITED(status);
  run.status = WEXITSTATUS(status);
  return run;
}

bool can_trace() {
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) return false;
  ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  waitpid(child, &status, 0);
  SyscallInfo info{};
  const bool can = ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) > 0;
  kill_child(child);
  return can;
}

}  // namespace corvan_test
