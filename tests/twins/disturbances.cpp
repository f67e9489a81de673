#include "tests/twins/disturbances.h"

#include <sqlite3.h>

#include <cstdio>
#include <iterator>
#include <utility>
#include <vector>

#include "base/cv_database.h"
#include "base/pathname.h"
#include "tests/model/values.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

Disturbances::Disturbances(std::string folder, uint64_t seed)
    : folder_(std::move(folder)), random_(seed) {}

std::string Disturbances::one(const std::string& user) {
  user_ = user;
  struct Choice {
    std::size_t weight;
    std::string (Disturbances::*run)();
  };
  static const std::vector<Choice> choices = {
      {6, &Disturbances::change_tables},
      {10, &Disturbances::create_what_is_missing},
      {8, &Disturbances::use_own_table},
      {8, &Disturbances::change_indexes},
      {6, &Disturbances::refuse_or_allow},
      {8, &Disturbances::lock_or_unlock},
      {5, &Disturbances::fill_or_free_the_disk},
      {6, &Disturbances::set},
      {10, &Disturbances::run_text_of_host},
      {8, &Disturbances::use_a_text_twice},
      {6, &Disturbances::look_into_the_file},
      {2, &Disturbances::copy_older_store},
      {5, &Disturbances::reopen},
      {1, &Disturbances::damage},
  };
  std::size_t total = 0;
  for (const Choice& each : choices) total += each.weight;
  std::size_t at = below(total);
  for (const Choice& each : choices) {
    if (at < each.weight) return (this->*each.run)();
    at -= each.weight;
  }
  return "";  // not reached
}

void Disturbances::end() {
  other_.reset();
}

std::string Disturbances::outside(const std::string& sql) {
  if (other_ == nullptr) other_ = std::make_unique<Outside>(folder_ + "corvan");
  return "another program: " + sql + ": " + other_->run(sql);
}

std::string Disturbances::inside(const std::string& sql) {
  return "execute_none_query: " + sql + ": " + std::to_string(store().execute_none_query(sql));
}

std::string Disturbances::inside_all(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& sql : texts) all += inside(sql) + "\n";
  return all;
}

std::string Disturbances::change_tables() {
  switch (below(4)) {
    case 0:
      return either("drop table " + table());
    case 1:
      return either("alter table " + table() + " add column extra" + std::to_string(below(100)));
    case 2:
      return inside("create temp table t_sync(user_id,receive_time,sent_time)");
    default:
      return inside("drop table temp.t_sync");
  }
}

std::string Disturbances::create_what_is_missing() {
  std::string text;
  for (const auto& entry : Corvan::CvDatabase::table_index()) {
    text += (text.empty() ? "" : "\n") + outside(entry.second);
  }
  return text;
}

// A table of the host, which can disappear with a transaction.
std::string Disturbances::use_own_table() {
  switch (below(6)) {
    case 0:
      return inside_all(
          {"begin", "create table own(a)", "select a from own", "rollback", "select a from own"});
    case 1:
      return either("create table if not exists own(a)");
    case 2:
      return either("drop table own");
    case 3:
      return inside_all({"begin", "alter table own add column b", "select b from own"});
    case 4:
      return inside(of({"rollback", "commit", "insert into own(b) values(1)"}));
    default:
      return inside(of({"select a from own", "insert into own(a) values(1)", "select b from own"}));
  }
}

std::string Disturbances::change_indexes() {
  const auto all = Corvan::CvDatabase::table_index();
  const auto& [name, text] =
      *std::next(all.begin(), static_cast<std::ptrdiff_t>(below(all.size())));
  switch (below(6)) {
    case 0:
      return either("analyze");
    case 1:
      return either("reindex");
    case 2:
      return either("create index extra on " + table() + "(session_type)");
    case 3:
      return either("drop index extra");
    default:
      return either("drop index " + name);
  }
}

std::string Disturbances::refuse_or_allow() {
  const std::string trigger = "refuse_" + table();
  if (below(3) > 0) return either("drop trigger if exists " + trigger);
  return either("create trigger " + trigger + " before " + of({"insert", "update", "delete"}) +
                " on " + trigger.substr(7) + " begin select " +
                of({"raise(abort,'refused')", "raise(fail,'refused')", "raise(rollback,'refused')",
                    "raise(ignore)"}) +
                "; end");
}

std::string Disturbances::lock_or_unlock() {
  switch (below(5)) {
    case 0:
      return outside("begin immediate");
    case 1:
      outside("begin");
      return outside("select count(*) from t_message");
    case 2:
      return inside(of({"begin transaction", "commit transaction", "rollback transaction"}));
    default:
      return outside("rollback");
  }
}

std::string Disturbances::fill_or_free_the_disk() {
  if (below(2) == 0) return inside("pragma max_page_count=1073741823");
  const int32_t pages = store().get_pragma("pragma page_count");
  return inside("pragma max_page_count=" + std::to_string(pages));
}

std::string Disturbances::set() {
  return inside(of({"pragma cache_size=5", "pragma cache_size=2000", "pragma secure_delete=on",
                    "pragma query_only=on", "pragma query_only=off", "pragma query_only=off",
                    "pragma automatic_index=off", "pragma case_sensitive_like=on", "vacuum",
                    "pragma recursive_triggers=on", "pragma journal_mode=wal"}));
}

// Texts that the cache keeps, and some at its borders.
std::string Disturbances::run_text_of_host() {
  return inside(of({"update t_session set unread_count=unread_count+1",
                    "select 1",
                    "select 1; drop table t_sync",
                    "select 1;",
                    " SELECT 1",
                    "select 1 -- one",
                    "\nselect count(*) from t_message",
                    "select count(*) from t_message",
                    "insert into t_sync values('twin',1,2)",
                    "delete from t_sync where user_id='twin'",
                    "replace into t_sync values('twin',3,4)",
                    "with a as (select 1) select * from a",
                    "explain select 1",
                    "select abs(-9223372036854775808)",
                    "selct 1",
                    "savepoint a",
                    "release a",
                    "rollback to a",
                    "begin immediate",
                    "end",
                    "values(1)",
                    "select * from missing",
                    "select last_insert_rowid()"}));
}

// Two statements of one text at once, and an operation between their steps.
std::string Disturbances::use_a_text_twice() {
  const std::string sql = of({"select id from t_message order by id", "select rowid from t_session",
                              "update t_session set silence=silence",
                              "select draft from t_session where session_id=?"});
  std::string text = "twice: " + sql + ":";
  const auto note = [&text](int64_t value) { text += " " + std::to_string(value); };
  int32_t code = 0;
  sqlite3_stmt* const first = store().prepare_sql(sql, code);
  note(code);
  if (first != nullptr) note(store().step(first, false));
  sqlite3_stmt* const second = store().prepare_sql(sql, code);
  note(code);
  if (second != nullptr) note(store().step(second, false));
  int32_t count = 0;
  note(store().get_message_count("a", Corvan::CV_GROUP, count) ? count : -1);
  note(store().set_silence("a", Corvan::CV_GROUP, 1) ? 1 : 0);
  if (first != nullptr) note(store().step(first, false));
  store().finalize(first);
  store().finalize(second);
  return text;
}

std::string Disturbances::look_into_the_file() {
  std::string found;
  switch (below(5)) {
    case 0: {
      const bool sound = store().check_integrity(found);
      return "check_integrity: " + text(sound) + " " + found;
    }
    case 1:
      return "get_database_version: " + store().get_database_version();
    case 2:
      return "is_table_exist: " + text(store().is_table_exist(table()));
    case 3:
      return "is_db_unlocked: " + std::to_string(store().is_db_unlocked(""));
    default:
      return outside(of({"pragma integrity_check", "pragma wal_checkpoint(truncate)", "vacuum"}));
  }
}

std::string Disturbances::copy_older_store() {
  {
    Outside older(folder_ + "older");
    older.run("create table t_sync(user_id primary key,receive_time,sent_time)");
    older.run("insert or replace into t_sync values('older'," + std::to_string(below(9)) + ",2)");
  }
  std::string text =
      std::to_string(store().execute_none_query("attach '" + folder_ + "older' as odb"));
  store().createdb_copydata();
  return "copy older store: " + text + " " + inside("detach odb");
}

std::string Disturbances::reopen() {
  store().close_db();
  return "reopen: " + text(store().init_open_db(cvrtc::Pathname(folder_), "", user_));
}

// Overwrites some bytes of one page.
std::string Disturbances::damage() {
  const std::string file = folder_ + "corvan";
  if (!file_exists(file)) return "no file to damage";
  const std::size_t pages = read_file(file).size() / 4096;
  const std::size_t at = below(pages + 1) * 4096 + below(4096);
  std::FILE* const stream = std::fopen(file.c_str(), "r+b");
  if (stream == nullptr) return "the file cannot be damaged";
  std::fseek(stream, static_cast<long>(at), SEEK_SET);
  for (std::size_t left = 1 + below(200); left > 0; --left) {
    std::fputc(static_cast<int>(below(256)), stream);
  }
  std::fclose(stream);
  return "damage at " + std::to_string(at);
}

}  // namespace corvan_test
