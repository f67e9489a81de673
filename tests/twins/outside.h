#ifndef TESTS_TWINS_OUTSIDE_H_
#define TESTS_TWINS_OUTSIDE_H_

#include <string>

struct sqlite3;

namespace corvan_test {

// A connection of another program to the store's file. It never waits for a lock.
class Outside {
 public:
  explicit Outside(const std::string& file);
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;
  ~Outside();

  // Runs one statement. Returns its rows, each on a line with its columns joined by "|", then
  // SQLite's result code and text.
  std::string run(const std::string& sql);

 private:
  sqlite3* db_ = nullptr;
};

}  // namespace corvan_test

#endif  // TESTS_TWINS_OUTSIDE_H_
