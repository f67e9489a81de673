#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <psapi.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "tests/tools/process.h"

namespace corvan_test {

namespace {

struct Running {
  HANDLE handle = nullptr;
  DWORD most_milliseconds = INFINITE;  // counted from the beginning of the wait
};

constexpr UINT kKilled = 0xC0000001;
constexpr int kTimeOut = -14;  // as SIGALRM on POSIX

std::map<pid_t, Running>& running() {
  static std::map<pid_t, Running> all;
  return all;
}

std::uint64_t& peak() {
  static std::uint64_t most = 0;
  return most;
}

std::wstring wide(const std::string& utf8) {
  return std::filesystem::u8path(utf8).wstring();
}

int checked(int descriptor) {
  if (descriptor < 0) throw std::runtime_error("cannot open a file");
  return descriptor;
}

// Quoted so that CommandLineToArgvW() returns the argument as it was: backslashes count only
// before a quotation mark.
std::wstring quoted(const std::wstring& argument) {
  std::wstring text = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t unit : argument) {
    if (unit == L'"') text.append(backslashes + 1, L'\\');
    backslashes = unit == L'\\' ? backslashes + 1 : 0;
    text += unit;
  }
  return text.append(backslashes, L'\\') + L'"';
}

std::wstring command_line(const Arguments& words) {
  std::wstring line;
  for (const std::string& word : words) line += (line.empty() ? L"" : L" ") + quoted(wide(word));
  return line;
}

bool have_same_name(const std::wstring& one, const std::wstring& other) {
  const std::size_t size = one.find(L'=', 1);
  return size == other.find(L'=', 1) && _wcsnicmp(one.c_str(), other.c_str(), size) == 0;
}

std::wstring environment(const std::vector<std::string>& added) {
  std::vector<std::wstring> all;
  for (const std::string& variable : added) all.push_back(wide(variable));
  const std::size_t replaced_by = all.size();
  wchar_t* const present = GetEnvironmentStringsW();
  for (const wchar_t* one = present; *one != L'\0'; one += wcslen(one) + 1) {
    const auto end = all.begin() + static_cast<std::ptrdiff_t>(replaced_by);
    const bool is_replaced = std::any_of(
        all.begin(), end, [one](const std::wstring& other) { return have_same_name(other, one); });
    if (!is_replaced) all.emplace_back(one);
  }
  FreeEnvironmentStringsW(present);
  std::wstring block;
  for (const std::wstring& variable : all) block += variable + L'\0';
  return block + L'\0';
}

// The only handles of this process that others inherit. Closes the descriptors.
class InheritedHandles {
 public:
  explicit InheritedHandles(const Launch& launch) {
    const std::array<int, 3> descriptors = {launch.in, launch.out, launch.err};
    for (std::size_t i = 0; i < handles_.size(); ++i) {
      const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(descriptors[i]));
      const HANDLE self = GetCurrentProcess();
      DuplicateHandle(self, handle, self, &handles_[i], 0, TRUE, DUPLICATE_SAME_ACCESS);
      _close(descriptors[i]);
    }
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;
  ~InheritedHandles() {
    for (const HANDLE handle : handles_) CloseHandle(handle);
  }

  HANDLE operator[](std::size_t i) const { return handles_[i]; }

 private:
  std::array<HANDLE, 3> handles_{};
};

}  // namespace

pid_t start_process(const Launch& launch) {
  if (launch.largest_file > 0 || launch.most_memory > 0 || launch.unprivileged) {
    throw std::runtime_error("Windows does not have this limit");
  }
  const InheritedHandles handles(launch);
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdInput = handles[0];
  start.hStdOutput = handles[1];
  start.hStdError = handles[2];
  std::wstring line = command_line(launch.words);
  std::wstring variables = environment(launch.variables);
  PROCESS_INFORMATION process = {};
  // A console of its own, for interrupt_process().
  const DWORD flags = CREATE_NO_WINDOW | CREATE_UNICODE_ENVIRONMENT;
  if (CreateProcessW(wide(launch.words[0]).c_str(), line.data(), nullptr, nullptr, TRUE, flags,
                     variables.data(), nullptr, &start, &process) == 0) {
    const std::string error = std::to_string(GetLastError());
    throw std::runtime_error("cannot start " + launch.words[0] + ": error " + error);
  }
  CloseHandle(process.hThread);
  const auto pid = static_cast<pid_t>(process.dwProcessId);
  running()[pid] = {process.hProcess,
                    launch.most_seconds == 0 ? INFINITE : launch.most_seconds * 1000};
  return pid;
}

int wait_for_process(pid_t pid) {
  const Running process = running().at(pid);
  running().erase(pid);
  const bool is_late =
      WaitForSingleObject(process.handle, process.most_milliseconds) == WAIT_TIMEOUT;
  if (is_late) {
    TerminateProcess(process.handle, kKilled);
    WaitForSingleObject(process.handle, INFINITE);
  }
  DWORD status = 0;
  GetExitCodeProcess(process.handle, &status);
  PROCESS_MEMORY_COUNTERS memory = {};
  if (GetProcessMemoryInfo(process.handle, &memory, sizeof memory) != 0) {
    peak() = std::max(peak(), std::uint64_t{memory.PeakWorkingSetSize});
  }
  CloseHandle(process.handle);
  return is_late ? kTimeOut : static_cast<int>(status);
}

bool kill_process(pid_t pid) {
  const bool is_killed = TerminateProcess(running().at(pid).handle, kKilled) != 0;
  return wait_for_process(pid) == static_cast<int>(kKilled) && is_killed;
}

const std::vector<int>& interrupts() {
  static const std::vector<int> all = {SIGINT};
  return all;
}

void interrupt_process(pid_t pid, int /*interrupt*/) {
  // The event reaches all processes of the console, including this one.
  SetConsoleCtrlHandler([](DWORD /*event*/) { return TRUE; }, TRUE);
  FreeConsole();
  while (AttachConsole(static_cast<DWORD>(pid)) == 0) {
    // The program has ended, or has just been started. Then it does not handle interrupts yet.
    constexpr DWORD kStartTime = 200;  // milliseconds
    if (WaitForSingleObject(running().at(pid).handle, kStartTime) == WAIT_OBJECT_0) return;
  }
  if (GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0) == 0) {
    throw std::runtime_error("cannot interrupt a program");
  }
}

int interrupted_status(int /*interrupt*/) {
  return static_cast<int>(STATUS_CONTROL_C_EXIT);
}

bool has_memory_limit() {
  return false;
}

std::uint64_t most_memory_used() {
  return peak();
}

Pipe make_pipe() {
  int ends[2] = {};
  if (_pipe(ends, 1 << 16, O_BINARY | O_NOINHERIT) != 0) {
    throw std::runtime_error("cannot make a pipe");
  }
  return {ends[0], ends[1]};
}

void write_all(int descriptor, const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto size = write(descriptor, text.data() + at, static_cast<unsigned>(text.size() - at));
    if (size <= 0) throw std::runtime_error("cannot write to a pipe");
    at += static_cast<std::size_t>(size);
  }
}

int open_input(const std::string& path) {
  return checked(_wopen(wide(path).c_str(), O_RDONLY | O_CREAT | O_BINARY | O_NOINHERIT, 0600));
}

int create_output(const std::string& path) {
  return checked(
      _wopen(wide(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_BINARY | O_NOINHERIT, 0600));
}

int null_output() {
  return checked(_open("NUL", O_WRONLY | O_BINARY | O_NOINHERIT));
}

int full_output() {
  return checked(_open("NUL", O_RDONLY | O_BINARY | O_NOINHERIT));
}

int full_output_error() {
  return EBADF;
}

std::vector<std::string> temporary_files_in(const std::string& folder) {
  return {"TMP=" + folder, "TEMP=" + folder, "TMPDIR=" + folder};
}

std::string modification_time(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA status = {};
  if (GetFileAttributesExW(wide(path).c_str(), GetFileExInfoStandard, &status) == 0) {
    throw std::runtime_error("cannot look at a file");
  }
  return std::to_string(status.ftLastWriteTime.dwHighDateTime) + "." +
         std::to_string(status.ftLastWriteTime.dwLowDateTime);
}

void make_fifo(const std::string& /*path*/) {
  throw std::runtime_error("Windows has no FIFOs in folders");
}

}  // namespace corvan_test
