#include "tools/platform/terminal.h"

#include "tools/platform/wide.h"

namespace corvan_tool {

namespace {

bool is_console(DWORD stream) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(stream), &mode) != 0;
}

HANDLE open_console(const wchar_t* name) {
  return CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     nullptr, OPEN_EXISTING, 0, nullptr);
}

void close_console(HANDLE console) {
  if (console != INVALID_HANDLE_VALUE) CloseHandle(console);
}

}  // namespace

struct SilentTerminal::State {
  HANDLE input = INVALID_HANDLE_VALUE;
  HANDLE output = INVALID_HANDLE_VALUE;
  DWORD before = 0;
  std::string bytes = {};  // of the last character, not yet read
};

bool is_output_on_terminal() {
  return is_console(STD_OUTPUT_HANDLE);
}

bool is_error_on_terminal() {
  return is_console(STD_ERROR_HANDLE);
}

int columns_of_terminal() {
  CONSOLE_SCREEN_BUFFER_INFO screen = {};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &screen)) return 0;
  return screen.srWindow.Right - screen.srWindow.Left + 1;
}

SilentTerminal::SilentTerminal() {
  State state = {open_console(L"CONIN$"), open_console(L"CONOUT$")};
  if (state.input == INVALID_HANDLE_VALUE || state.output == INVALID_HANDLE_VALUE ||
      !GetConsoleMode(state.input, &state.before)) {
    close_console(state.input);
    close_console(state.output);
    return;
  }
  state_ = std::make_unique<State>(state);
  constexpr DWORD kSpecial = ENABLE_ECHO_INPUT | ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT;
  FlushConsoleInputBuffer(state.input);
  SetConsoleMode(state.input, state.before & ~kSpecial);
}

SilentTerminal::~SilentTerminal() {
  if (state_ == nullptr) return;
  FlushConsoleInputBuffer(state_->input);
  SetConsoleMode(state_->input, state_->before);
  close_console(state_->input);
  close_console(state_->output);
}

// Ctrl-Z is the end of the input.
bool SilentTerminal::read(char& byte) {
  constexpr wchar_t kEnd = 0x1A;
  std::wstring units;
  while (state_->bytes.empty()) {
    wchar_t unit = 0;
    DWORD count = 0;
    if (!ReadConsoleW(state_->input, &unit, 1, &count, nullptr) || count == 0) return false;
    if (unit == kEnd) return false;
    units += unit;
    const bool is_half = units.size() == 1 && (unit & 0xFC00) == 0xD800;
    if (!is_half) state_->bytes = utf8(units);
  }
  byte = state_->bytes.front();
  state_->bytes.front() = '\0';
  state_->bytes.erase(0, 1);
  return true;
}

void SilentTerminal::write(const std::string& text) {
  const std::wstring units = wide(text);
  WriteConsoleW(state_->output, units.data(), static_cast<DWORD>(units.size()), nullptr, nullptr);
}

}  // namespace corvan_tool
