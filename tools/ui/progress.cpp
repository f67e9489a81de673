#include "tools/ui/progress.h"

#include <sqlite3.h>

#include <iostream>
#include <utility>

#include "tools/platform/terminal.h"

namespace corvan_tool {

namespace {

constexpr std::chrono::seconds kFirstDelay{1};
constexpr std::chrono::milliseconds kInterval{100};

}  // namespace

Progress::Progress(std::string what, std::uint64_t total)
    : what_(std::move(what)),
      total_(total),
      terminal_(is_error_on_terminal()),
      next_(Clock::now() + kFirstDelay) {}

void Progress::show(std::uint64_t done) {
  done_ = done;
  if (!terminal_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  shown_ = true;
  std::cerr << '\r' << done_;
  if (total_ > 0) std::cerr << " of " << total_;
  std::cerr << ' ' << what_ << "\x1b[K" << std::flush;
}

void Progress::clear() {
  if (!shown_) return;
  shown_ = false;
  std::cerr << "\r\x1b[K" << std::flush;
}

StatementProgress::StatementProgress(sqlite3* db, const std::string& what)
    : db_(db), progress_(what) {
  constexpr int kMillion = 1000000;
  sqlite3_progress_handler(
      db_, kMillion,
      [](void* progress) {
        static_cast<Progress*>(progress)->advance();
        return 0;
      },
      &progress_);
}

StatementProgress::~StatementProgress() {
  sqlite3_progress_handler(db_, 0, nullptr, nullptr);
}

}  // namespace corvan_tool
