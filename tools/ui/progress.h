// How far a command has come, for whoever waits for it.

#ifndef TOOLS_UI_PROGRESS_H_
#define TOOLS_UI_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>

struct sqlite3;

namespace corvan_tool {

// One line on standard error, rewritten in place from the second second on; nothing at all when
// that is no terminal. The line is gone when the object is.
class Progress {
 public:
  // `what` is counted, as in "12000 of 400000 messages". A total of 0 is unknown.
  explicit Progress(std::string what, std::uint64_t total = 0);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { clear(); }

  // So many more are done.
  void advance(std::uint64_t count = 1) { show(done_ + count); }

  // So many are done.
  void show(std::uint64_t done);

  // Takes the line away, for other text to be written; the next call shows it again.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  const std::string what_;
  const std::uint64_t total_;
  const bool terminal_;
  std::uint64_t done_ = 0;
  Clock::time_point next_;
  bool shown_ = false;
};

// Shows the steps of a connection's statements, for those of which nothing else is known, while the
// object lives. The connection must live longer.
class StatementProgress {
 public:
  // `what` names them, as in "million steps of the integrity check".
  StatementProgress(sqlite3* db, const std::string& what);
  StatementProgress(const StatementProgress&) = delete;
  StatementProgress& operator=(const StatementProgress&) = delete;
  ~StatementProgress();

 private:
  sqlite3* const db_;
  Progress progress_;
};

}  // namespace corvan_tool

#endif  // TOOLS_UI_PROGRESS_H_
