#include "tests/faults/scene.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <utility>

#include "tests/faults/answers.h"
#include "tests/support/operations/small_store.h"
#include "tests/support/rows.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/store_library.h"
#include "tests/support/uncounted.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using SqlTexts = std::vector<std::string>;

// All rows as an opening leaves them: messages being sent have failed.
constexpr const char* kAllRows =
    "select 'm',id,session_id,session_type,object_name,length(content),substr(content,1,9),sender,"
    "direction,case sent_status when 1 then 2 else sent_status end,read_status,is_mention,"
    "sent_time,client_uid,server_uid from t_message order by id;"
    "select 's',session_id,session_type,title,draft,is_top,session_time,unread_count,"
    "mention_count,silence,latest_id,read_time,receipt_time from t_session order by 2,3;"
    "select 't',user_id,receive_time,sent_time from t_sync order by 2;"
    "select 'v',database_version from t_version";
constexpr const char* kSchema =
    "select name,sql from sqlite_master where name not like 'older%' order by name";

CvDbSingleton& store() {
  return *CvDbSingleton::get_instance();
}

void copy(const std::string& from, const std::string& to) {
  std::filesystem::remove(to);
  std::filesystem::copy_file(from, to);
}

void remove_store(const std::string& folder) {
  for (const char* name : {"corvan", "corvan-wal", "corvan-shm", "corvan-journal", "older-wal",
                           "older-shm", "older-journal"}) {
    std::remove((folder + name).c_str());
  }
}

bool starts_with(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

// A statement that a constraint refused certainly changed nothing.
bool refused(const Answer& answer) {
  return answer.code() == SQLITE_CONSTRAINT;
}

bool changes_rows(const Answer& answer) {
  return starts_with(answer.sql, "insert") || starts_with(answer.sql, "update") ||
         starts_with(answer.sql, "delete") || starts_with(answer.sql, "replace");
}

// Whether the store deletes its file because SQLite calls it damaged.
bool deletes(const std::vector<Answer>& answers) {
  return std::any_of(answers.begin(), answers.end(), [](const Answer& answer) {
    return answer.prepared == SQLITE_CORRUPT || answer.prepared == SQLITE_NOTADB;
  });
}

// Statements that were, or may have been, committed together.
struct Unit {
  SqlTexts statements;
  bool certain;
};

// The committed work: a group for each write outside a transaction, and one for each transaction.
std::vector<Unit> units_of(const std::vector<Answer>& answers) {
  std::vector<Unit> units;
  SqlTexts pending;  // of the transaction that is open
  bool in_transaction = false;
  for (const Answer& answer : answers) {
    const bool done = answer.code() == SQLITE_DONE;
    const bool stepped = !answer.steps.empty();
    if (answer.sql == "begin transaction") {
      in_transaction = in_transaction || done;
    } else if (answer.sql == "commit transaction") {
      if (in_transaction && stepped) units.push_back({pending, done});
    } else if (changes_rows(answer) && stepped && !refused(answer)) {
      if (!in_transaction) {
        units.push_back({{answer.expanded}, done});
      } else if (done) {
        pending.push_back(answer.expanded);
      }
    }
    // SQLite may have ended the transaction itself. Its statements are gone, and later ones are not
    // in it.
    if (in_transaction && stepped && !answer.in_transaction) {
      pending.clear();
      in_transaction = false;
    }
  }
  return units;
}

// The rows that are only in one of the two lists.
std::string difference(const std::vector<std::string>& expected,
                       const std::vector<std::string>& actual) {
  const auto lacks = [](const std::vector<std::string>& rows, const std::string& row) {
    return std::find(rows.begin(), rows.end(), row) == rows.end();
  };
  std::string all;
  for (const std::string& row : expected) all += lacks(actual, row) ? "\n    - " + row : "";
  for (const std::string& row : actual) all += lacks(expected, row) ? "\n    + " + row : "";
  return all;
}

}  // namespace

Scene::Scene() {
  for (Call& each : all_cases(&Operation::calls, folder_.path())) {
    if (each.expected) calls_.push_back(std::move(each));
  }
  fill_store(image_.path());
  copy(image_.file("older"), folder_.file("older"));
  fresh_schema_ = rows(image_.file("corvan"), kSchema);
  log_.take();
  take_ledger();
}

Scene::~Scene() {
  CvDbSingleton::delete_instance();
}

std::vector<Answer> Scene::reset(const Call& call) {
  CvDbSingleton::delete_instance();
  remove_store(folder_.path());
  if (call.start == Call::kNoFile) return {};
  copy(image_.file("corvan"), folder_.file("corvan"));
  if (call.start == Call::kClosed) return {};
  if (!store().init_open_db(cvrtc::Pathname(folder_.path()), "", "me")) {
    throw std::runtime_error("the store does not open");
  }
  if (statements_are_kept() && idle_) make_idle(call);
  start_answers();
  if (call.prepare) call.prepare(store());
  return take_answers();
}

void Scene::make_idle(const Call& call) {
  const auto texts = texts_.find(call.name);
  if (texts == texts_.end()) return;
  for (const std::string& text : texts->second) {
    int32_t code = 0;
    store().finalize(store().prepare_sql(text, code));
  }
}

Outcome Scene::run(const Call& call, const std::function<void()>& arm,
                   const std::function<void()>& disarm, Certain certain, const Next& next) {
  Outcome outcome;
  std::vector<Answer> prepared = reset(call);
  store();  // exists before anything fails
  std::string result;
  bool threw = false;
  start_answers();
  arm();
  try {
    result = call.run(store());
  } catch (const std::bad_alloc&) {
    threw = true;
  }
  disarm();
  const std::vector<Answer> all = take_answers();
  const bool in_transaction_after = in_transaction();
  if (texts_.count(call.name) == 0) {
    for (const Answer& each : all) texts_[call.name].push_back(each.sql);
  }

  outcome.deleted = deletes(all);
  if (threw) {
    if (certain != Certain::kAllButTheResult) outcome.complaint = "threw";
  } else if (certain != Certain::kNoRows) {
    Answers answers(all);
    const std::string expected = call.expected(answers);
    if (!answers.complaint().empty()) {
      outcome.complaint = answers.complaint();
    } else if (result != expected) {
      outcome.complaint = "returned " + result + ", not " + expected;
    }
  }
  if (open_statements() != 0) outcome.complaint = "left a statement open";
  if (in_transaction_after && (all.empty() || all.back().sql != "rollback transaction" ||
                               all.back().code() == SQLITE_DONE)) {
    outcome.complaint = "left a transaction open";
  }
  std::vector<Answer> afterwards;
  if (next && outcome.complaint.empty()) {
    start_answers();
    outcome.complaint = next(store());
    afterwards = take_answers();
    outcome.deleted = outcome.deleted || deletes(afterwards);
  }
  CvDbSingleton::delete_instance();
  if (outcome.complaint.empty() && !outcome.deleted && certain != Certain::kNoRows) {
    prepared.insert(prepared.end(), all.begin(), all.end());
    prepared.insert(prepared.end(), afterwards.begin(), afterwards.end());
    outcome.complaint = check_rows(call, prepared);
  }
  if (!outcome.complaint.empty()) {
    for (const Answer& each : all) {
      outcome.complaint += "\n    " + std::to_string(each.prepared) + " ";
      for (const int step : each.steps) outcome.complaint += std::to_string(step) + " ";
      outcome.complaint += each.sql.substr(0, 90);
    }
  }
  log_.take();
  take_ledger();
  return outcome;
}

std::string Scene::check_rows(const Call& call, const std::vector<Answer>& answers) {
  const std::string file = folder_.file("corvan");
  const bool opened = store().init_open_db(cvrtc::Pathname(folder_.path()), "", "me");
  std::string integrity;
  const bool sound = store().check_integrity(integrity);
  CvDbSingleton::delete_instance();
  if (!opened) return "does not open again";
  if (!sound) return "is damaged: " + integrity;
  const std::vector<std::string> schema = rows(file, kSchema);
  if (schema != fresh_schema_) return "has another schema:" + difference(fresh_schema_, schema);
  if (call.start == Call::kNoFile) return "";  // the whole schema, and no rows to lose

  const std::vector<Unit> units = units_of(answers);
  const std::vector<std::string> actual = rows(file, kAllRows);
  const auto in_doubt = static_cast<std::size_t>(
      std::count_if(units.begin(), units.end(), [](const Unit& unit) { return !unit.certain; }));
  if (in_doubt > 10) return "leaves too much in doubt";
  for (std::size_t choice = 0; choice < std::size_t{1} << in_doubt; ++choice) {
    SqlTexts statements;
    std::size_t bit = 0;
    for (const Unit& unit : units) {
      const bool takes_part = unit.certain || ((choice >> bit) & 1U) != 0;
      if (!unit.certain) ++bit;
      if (!takes_part) continue;
      statements.insert(statements.end(), unit.statements.begin(), unit.statements.end());
    }
    if (rows_after(statements) == actual) return "";
  }
  return "has rows that nothing explains:" + difference(rows_after({}), actual);
}

const std::vector<std::string>& Scene::rows_after(const SqlTexts& statements) {
  const auto known = rows_after_.find(statements);
  if (known != rows_after_.end()) return known->second;
  const std::string file = replay_.file("corvan");
  copy(image_.file("corvan"), file);
  copy(image_.file("older"), replay_.file("older"));
  std::string sql = "attach '" + replay_.file("older") + "' as odb;";
  for (const std::string& statement : statements) sql += statement + ";";
  std::vector<std::string>& result = rows_after_[statements];
  try {
    plant(file, sql);
    result = rows(file, kAllRows);
  } catch (const std::runtime_error&) {
    // The statements cannot have run in this order: no rows match.
  }
  return result;
}

}  // namespace corvan_test
