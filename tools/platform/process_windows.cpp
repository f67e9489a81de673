#include "tools/platform/process.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "tools/platform/own_files.h"
#include "tools/platform/wide.h"

namespace corvan_tool {

namespace {

InterruptHandler handler_of_interrupts = {};

// The console's settings when the program started. Its input and output have one mode each; the
// program's streams may lead elsewhere.
class ConsoleSettings {
 public:
  void read() {
    page_ = GetConsoleOutputCP();
    each_mode([](HANDLE console, DWORD& mode) {
      if (!GetConsoleMode(console, &mode)) mode = kUnknown;
    });
  }

  void restore() {
    if (page_ != 0) SetConsoleOutputCP(page_);
    each_mode([](HANDLE console, DWORD& mode) {
      if (mode != kUnknown) SetConsoleMode(console, mode);
    });
  }

 private:
  static constexpr DWORD kUnknown = ~DWORD{0};

  template <typename Use>
  void each_mode(const Use& use) {
    const std::array<std::pair<const wchar_t*, DWORD*>, 2> all = {
        {{L"CONIN$", &input_mode_}, {L"CONOUT$", &output_mode_}}};
    for (const auto& [name, mode] : all) {
      const HANDLE console =
          CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                      nullptr, OPEN_EXISTING, 0, nullptr);
      if (console == INVALID_HANDLE_VALUE) continue;
      use(console, *mode);
      CloseHandle(console);
    }
  }

  UINT page_ = 0;  // 0: there is no console
  DWORD input_mode_ = kUnknown;
  DWORD output_mode_ = kUnknown;
};

ConsoleSettings console_before;

void restore_console() {
  console_before.restore();
}

void show_utf8() {
  console_before.read();
  if (!SetConsoleOutputCP(CP_UTF8)) return;  // no console
  std::atexit(restore_console);
}

// Does nothing unless the stream is a console that supports these sequences.
void understand_sequences(DWORD stream) {
  DWORD mode = 0;
  const HANDLE console = GetStdHandle(stream);
  if (!GetConsoleMode(console, &mode)) return;
  SetConsoleMode(console, mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

// Both TMP, which the system and SQLite use, and TMPDIR name the folder for temporary files.
void take_temporary_folder() {
  const wchar_t* const folder = _wgetenv(L"TMPDIR");
  if (folder != nullptr && *folder != L'\0') SetEnvironmentVariableW(L"TMP", folder);
}

// `waiting` points to the id of the thread that waits for this one.
DWORD WINAPI remove_files(void* waiting) {
  handler_of_interrupts.stop();
  const std::vector<std::string> paths = handler_of_interrupts.paths();
  if (paths.empty()) return 0;
  release_own_files(paths, *static_cast<const DWORD*>(waiting));
  handler_of_interrupts.remove();
  return 0;
}

// The other threads are suspended meanwhile. If one of them owns a lock that the removal needs, the
// process ends nevertheless, and leaves the files as if it had been killed. The system waits for
// five seconds if the console is being closed or the user signs out.
BOOL WINAPI end_by_interrupt(DWORD event) {
  const bool may_take_long = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  const DWORD patience = may_take_long ? 60000 : 4000;  // milliseconds
  DWORD id = GetCurrentThreadId();
  const HANDLE remover = CreateThread(nullptr, 0, remove_files, &id, 0, nullptr);
  if (remover != nullptr) WaitForSingleObject(remover, patience);
  restore_console();
  TerminateProcess(GetCurrentProcess(), STATUS_CONTROL_C_EXIT);
  return TRUE;
}

}  // namespace

void set_up_process() {
  _setmode(0, _O_BINARY);
  _setmode(1, _O_BINARY);
  _setmode(2, _O_BINARY);
  take_temporary_folder();
  show_utf8();
  understand_sequences(STD_OUTPUT_HANDLE);
  understand_sequences(STD_ERROR_HANDLE);
}

// Not main()'s arguments: they are in the code page of the process, and patterns in them are
// replaced by the names of files.
std::vector<std::string> program_arguments(int /*argc*/, char** /*argv*/) {
  int count = 0;
  wchar_t** const all = CommandLineToArgvW(GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 1; all != nullptr && i < count; ++i) arguments.push_back(utf8(all[i]));
  LocalFree(all);
  return arguments;
}

void handle_interrupts(const InterruptHandler& handler) {
  handler_of_interrupts = handler;
  SetConsoleCtrlHandler(end_by_interrupt, TRUE);
}

bool close_output() {
  return _close(1) == 0 || errno == EBADF;
}

}  // namespace corvan_tool
