#include "tools/platform/process.h"

#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <cstdlib>

#include "tools/platform/own_files.h"
#include "tools/platform/wide.h"

#include <shellapi.h>

namespace corvan_tool {

namespace {

UINT output_page_before = 0;
InterruptHandler handler_of_interrupts = {};

void restore_output_page() {
  if (output_page_before != 0) SetConsoleOutputCP(output_page_before);
}

void show_utf8() {
  output_page_before = GetConsoleOutputCP();
  if (output_page_before == 0) return;  // no console
  SetConsoleOutputCP(CP_UTF8);
  std::atexit(restore_output_page);
}

// Without an effect unless the stream is a console that knows these sequences.
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
  const std::vector<std::string> paths = handler_of_interrupts.paths();
  if (paths.empty()) return 0;
  release_own_files(paths, *static_cast<const DWORD*>(waiting));
  handler_of_interrupts.remove();
  return 0;
}

// The other threads are suspended meanwhile. If one of them owns a lock that the removal needs, the
// process ends nevertheless, and leaves the files as if it had been killed. A console that is being
// closed waits for five seconds.
BOOL WINAPI end_by_interrupt(DWORD /*event*/) {
  constexpr DWORD kPatience = 4000;  // milliseconds
  DWORD id = GetCurrentThreadId();
  const HANDLE remover = CreateThread(nullptr, 0, remove_files, &id, 0, nullptr);
  if (remover != nullptr) WaitForSingleObject(remover, kPatience);
  restore_output_page();
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
