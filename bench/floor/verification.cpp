#include "bench/floor/verification.h"

#include <memory>
#include <utility>
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

// Traces every connection of an SQLite that is opened during the object's lifetime.
class Tracing {
 public:
  explicit Tracing(LinkedSqlite sqlite) : sqlite_(std::move(sqlite)) {
    static constexpr SqliteWatcher kWatcher = {
        [](const char* text) { statements.emplace_back(text); }, nullptr};
    sqlite_.watch(&kWatcher);
  }
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;
  ~Tracing() { sqlite_.watch(nullptr); }

 private:
  const LinkedSqlite sqlite_;
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
    const Tracing tracing(sqlite_of(kind));
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
  for (const Kind kind : contenders()) {
    if (kind == Kind::kStore) continue;
    const Conduct other = conduct_of(kind, fixture_folder);
    const std::string of_other =
        std::string(" of the contender ") + name_of(kind) + " are the store's";
    Report::verify(other.statements == store.statements, "the statements" + of_other);
    Report::verify(other.results == store.results, "the results" + of_other);
    Report::verify(other.rows == store.rows, "the rows" + of_other);
  }
}

}  // namespace corvan_bench
