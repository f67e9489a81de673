#include "tools/import/look_up.h"

#include <fmt/format.h>

#include <iterator>

#include "tools/store/connection.h"

namespace corvan_tool {

const char* const kMessageRow =
    "select session_id,session_type,client_uid,* from t_message where id=?";

namespace {

sqlite3_stmt* prepare(Corvan::CvDbSingleton& store, const char* sql) {
  int32_t rc = 0;
  return store.prepare_sql(sql, rc);
}

}  // namespace

ImportLookUp::ImportLookUp(Corvan::CvDbSingleton& store)
    : store_(store),
      message_(prepare(store, kMessageRow)),
      changes_(prepare(store, "select changes()")) {}

ImportLookUp::~ImportLookUp() {
  if (message_ != nullptr) store_.finalize(message_);
  if (changes_ != nullptr) store_.finalize(changes_);
}

bool ImportLookUp::has(int64_t id, const ImportMessage& message) const {
  sqlite3_stmt* const found = row(id);
  return found != nullptr && text_at(found, 0) == message.session_id &&
         sqlite3_column_int(found, 1) == message.session_type &&
         sqlite3_column_int64(found, 2) == message.client_uid;
}

bool ImportLookUp::changed_a_row() const {
  if (changes_ == nullptr) return false;
  store_.reset(changes_);
  return store_.step(changes_, false) == SQLITE_ROW && sqlite3_column_int(changes_, 0) > 0;
}

std::string ImportLookUp::text(int64_t id) const {
  sqlite3_stmt* const found = row(id);
  return found == nullptr ? "" : row_text(found);
}

sqlite3_stmt* ImportLookUp::row(int64_t id) const {
  if (message_ == nullptr) return nullptr;
  store_.reset(message_);
  Corvan::CvDbSingleton::bind(message_, 1, id);
  return store_.step(message_, false) == SQLITE_ROW ? message_ : nullptr;
}

std::string row_text(sqlite3_stmt* row) {
  std::string text;
  for (int i = 0; i < sqlite3_column_count(row); ++i) {
    const std::string value = text_at(row, i);
    fmt::format_to(std::back_inserter(text), "{} {} {}", sqlite3_column_type(row, i), value.size(),
                   value);
  }
  return text;
}

}  // namespace corvan_tool
