// Shows the progress of a command.

#ifndef TOOLS_UI_PROGRESS_H_
#define TOOLS_UI_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <string>

struct sqlite3;

namespace corvan_tool {

// One line on standard error, rewritten in place, from one second after construction on. The
// destructor removes it. Shows nothing if standard error is not a terminal.
class Progress {
 public:
  // `what` names what is counted: "12000 of 400000 messages". 0 means that the total is unknown.
  explicit Progress(std::string what, std::uint64_t total = 0);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { clear(); }

  void advance(std::uint64_t count = 1) { show(done_ + count); }

  void show(std::uint64_t done);

  // Removes the line, so that other text can be written. The next call shows it again.
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

// Shows the progress of a connection's statements by the steps of SQLite's virtual machine, for
// statements that offer no other measure. The connection must outlive the object.
class StatementProgress {
 public:
  // `what` is for example "million steps of the integrity check".
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
