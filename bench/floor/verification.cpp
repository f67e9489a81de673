#include "bench/floor/verification.h"

#include <sqlite3.h>

#include <memory>
#include <vector>

#include "bench/floor/contenders.h"
#include "bench/floor/fixture.h"
#include "bench/floor/operations.h"
#include "bench/support/report.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

namespace {

std::vector<std::string> statements;  // those run on traced connections, in order

int note_statement(unsigned, void*, void*, void* text) {
  statements.emplace_back(static_cast<const char*>(text));
  return 0;
}

int trace_connection(sqlite3* db, char**, const void*) {
  return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, note_statement, nullptr);
}

// Traces every connection that is opened during its lifetime.
class Tracing {
 public:
  Tracing() { sqlite3_auto_extension(entry()); }
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;
  ~Tracing() { sqlite3_cancel_auto_extension(entry()); }

 private:
  using Entry = void (*)();
  static Entry entry() { return reinterpret_cast<Entry>(&trace_connection); }
};

struct Conduct {
  std::vector<std::string> statements;
  std::vector<std::string> results;
  std::vector<std::string> rows;
};

Conduct conduct_of(Kind kind, const std::string& fixture_folder) {
  const corvan_test::TemporaryFolder folder;
  copy_fixture(fixture_folder, folder.path());
  Conduct conduct;
  {
    const Tracing tracing;
    const std::unique_ptr<Contender> contender = make_contender(kind, folder.path());
    statements.clear();  // the statements of opening differ
    for (const std::unique_ptr<Operation>& operation : make_operations()) {
      run_operation(*operation, *contender, true, [](const auto& calls) { calls(); });
      conduct.results.push_back(operation->result());
    }
    conduct.statements.swap(statements);
  }
  conduct.rows = corvan_test::rows(folder.file("corvan"),
                                   "select * from t_message order by id;"
                                   "select * from t_session order by session_id,session_type;"
                                   "select * from sqlite_sequence");
  return conduct;
}

}  // namespace

void verify_contenders(const std::string& fixture_folder) {
  const Conduct store = conduct_of(Kind::kStore, fixture_folder);
  Report::verify(!store.statements.empty(), "the store's statements are seen");
  for (const Kind kind : {Kind::kFloor, Kind::kCachedFloor}) {
    const Conduct floor = conduct_of(kind, fixture_folder);
    const std::string of_floor = std::string(" of the ") + name_of(kind) + " are the store's";
    Report::verify(floor.statements == store.statements, "the statements" + of_floor);
    Report::verify(floor.results == store.results, "the results" + of_floor);
    Report::verify(floor.rows == store.rows, "the rows" + of_floor);
  }
}

}  // namespace corvan_bench
