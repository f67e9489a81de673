// The fixture of the tests of verify.

#ifndef TESTS_TOOLS_VERIFY_FIXTURE_H_
#define TESTS_TOOLS_VERIFY_FIXTURE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/tools/program.h"
#include "tools/store/library_store.h"

namespace corvan_test {

using corvan_tool::LibraryStore;

constexpr int64_t kTime = 1700000000000;
constexpr const char* kAll = "counters,latest,times,indexes,sequence";
// A query for everything that a store holds.
constexpr const char* kContent =
    "select * from t_message;select rowid,* from t_session;select * from t_sync;"
    "select * from t_version;select * from sqlite_sequence;"
    "select type,name,sql from sqlite_master order by type,name";

using Ids = std::vector<int64_t>;

// A statement, and the only finding that it causes, with one row.
struct Planted {
  const char* sql;
  const char* code;
  const char* rank;
  const char* name;
  Json stored;
  Json derived = nullptr;
  Json repair = nullptr;
  Ids messages = {};
};

class VerifyTest : public ToolTest {
 protected:
  // Makes a new store and calls `call` with it.
  void make_store(const std::function<void(LibraryStore&)>& call);

  // Imports messages 1 to 3 into the group "room", the second of them a mention; 4 and an own
  // message 5 into the private chat "u01"; 6 into the chat room "hall".
  void import_sample();

  // Saves a message in a group and returns its id.
  int64_t save(LibraryStore& open, const std::string& room, int64_t time, bool mention = false,
               bool history = false, const std::string& uid = "");

  // The report as JSON. Expects this exit status.
  Json verify(int status);

  // The codes of a report's findings.
  static Rows codes(const Json& report);

  // The report's finding with this code. Fails if there is none.
  static Json finding(const Json& report, const std::string& code);

  // Runs each statement on a new copy of the sample. Expects its finding, and that --repair either
  // repairs it or leaves the store as it is.
  void expect_findings(const std::vector<Planted>& all);

  // The outcome of --repair as JSON.
  Json repair(const std::string& what, const Arguments& more = {});

  // "repair conversation name old -> new" for each change.
  static Rows changes(const Json& result);

  // Expects that --repair prints one line of error and leaves the folder as it is.
  void expect_refused(const Arguments& more, const std::string& error);

  // The names of the backups beside the store.
  Rows backups() const;

 private:
  void expect_finding(const Planted& planted);
  void expect_repair(const Planted& planted);
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_VERIFY_FIXTURE_H_
