#include "tests/faults/memory_child.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <utility>

namespace corvan_test {
namespace {

using Points = std::vector<uint64_t>;
using Work = std::function<ChildReport(uint64_t)>;

constexpr unsigned kSeconds = 120;          // for one process
constexpr std::ptrdiff_t kPointsEach = 25;  // of one process

// What the pipe carries for a point; the complaint follows.
struct Record {
  bool failed;
  std::size_t complaint_size;
};

void put(int pipe_end, const void* data, std::size_t size) {
  const char* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = write(pipe_end, at, size);
    if (written <= 0) _exit(EXIT_FAILURE);
    at += written;
    size -= static_cast<std::size_t>(written);
  }
}

// Reads until the other end is closed.
std::string take_all(int pipe_end) {
  std::string all;
  std::array<char, 4096> some{};
  for (;;) {
    const ssize_t got = read(pipe_end, some.data(), some.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return all;
    all.append(some.data(), static_cast<std::size_t>(got));
  }
}

std::vector<ChildReport> reports_in(const std::string& all) {
  std::vector<ChildReport> reports;
  Record record{};
  std::size_t at = 0;
  while (all.size() - at >= sizeof(record)) {
    all.copy(reinterpret_cast<char*>(&record), sizeof(record), at);
    at += sizeof(record);
    reports.push_back({record.failed, false, all.substr(at, record.complaint_size)});
    at = std::min(all.size(), at + record.complaint_size);
  }
  return reports;
}

[[noreturn]] void work_and_exit(const Points& points, const Work& work, int pipe_end) {
  alarm(kSeconds);
  for (const uint64_t point : points) {
    ChildReport report;
    try {
      report = work(point);
    } catch (const std::exception& e) {
      report.complaint = std::string("threw: ") + e.what();
    }
    const Record record{report.failed, report.complaint.size()};
    put(pipe_end, &record, sizeof(record));
    put(pipe_end, report.complaint.data(), report.complaint.size());
  }
  close(pipe_end);
  std::exit(EXIT_SUCCESS);
}

std::string ending(int status) {
  if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) == EXIT_SUCCESS) return "";
  return "exited with " + std::to_string(WEXITSTATUS(status));
}

// The reports of one process, and how it ended if it did not exit normally.
std::pair<std::vector<ChildReport>, std::string> in_child(const Points& points, const Work& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  std::fflush(nullptr);  // otherwise both processes write the buffered output
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) {
    close(ends[0]);
    work_and_exit(points, work, ends[1]);
  }
  close(ends[1]);
  const std::string all = take_all(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return {reports_in(all), ending(status)};
}

}  // namespace

std::vector<ChildReport> in_children(const Points& points, const Work& work) {
  std::vector<ChildReport> reports;
  auto next = points.begin();
  auto alone_until = next;
  while (next != points.end()) {
    const std::ptrdiff_t at_most = next < alone_until ? 1 : kPointsEach;
    const Points some(next, next + std::min(at_most, points.end() - next));
    auto [of_some, how] = in_child(some, work);
    if (!how.empty() && of_some.size() == some.size() && some.size() > 1) {
      alone_until = next + static_cast<std::ptrdiff_t>(some.size());
      continue;
    }
    if (!how.empty()) {
      if (of_some.size() < some.size()) of_some.push_back({true, true, ""});
      of_some.back().aborted = true;
      of_some.back().complaint += " " + how;
    }
    reports.insert(reports.end(), of_some.begin(), of_some.end());
    next += static_cast<std::ptrdiff_t>(of_some.size());
  }
  return reports;
}

}  // namespace corvan_test
