// Lets SQLite's allocations and its reads of files fail.

#ifndef TESTS_ADDONS_ENCRYPTION_SQLITE_FAULTS_H_
#define TESTS_ADDONS_ENCRYPTION_SQLITE_FAULTS_H_

#include <string>
#include <vector>

namespace corvan_test {

// While it exists, SQLite takes memory through it. Constructor and destructor restart SQLite, so no
// connection may be open, and registered extensions are gone afterwards.
class FailingMemory {
 public:
  FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;
  ~FailingMemory();

  // In the next connection's registered functions, the allocation with this number fails, or that
  // and all later ones. SQLite3 Multiple Ciphers itself does not survive failures elsewhere in
  // sqlite3_open_v2(). Registers functions around StoreKeys.
  static void fail(int number, bool all_later);
  // Nothing fails from now on. True if something has failed.
  static bool stop();
};

// While it exists, each of SQLite's reads of a file's content and size, from the one with this
// number on, fails with EIO.
class FailingReads {
 public:
  explicit FailingReads(int number, bool all_later);
  FailingReads(const FailingReads&) = delete;
  FailingReads& operator=(const FailingReads&) = delete;
  ~FailingReads();

  static bool has_failed();
};

// While it exists, the lines that SQLite writes to its own log are collected. Constructor and
// destructor restart SQLite.
class SqliteLog {
 public:
  SqliteLog();
  SqliteLog(const SqliteLog&) = delete;
  SqliteLog& operator=(const SqliteLog&) = delete;
  ~SqliteLog();

  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_SQLITE_FAULTS_H_
