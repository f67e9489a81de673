#include "tools/import/save_check.h"

#include <fmt/format.h>

#include <iterator>

namespace corvan_tool {

const char* const kMessageRow =
    "select session_id,session_type,client_uid,* from t_message where id=?";

namespace {

sqlite3_stmt* prepare(Corvan::CvDbSingleton& store, const char* sql) {
  int32_t rc = 0;
  return store.prepare_sql(sql, rc);
}

}  // namespace

SaveCheck::SaveCheck(Corvan::CvDbSingleton& store)
    : store_(store),
      message_(prepare(store, kMessageRow)),
      changes_(prepare(store, "select changes()")) {}

SaveCheck::~SaveCheck() {
  if (message_ != nullptr) store_.finalize(message_);
  if (changes_ != nullptr) store_.finalize(changes_);
}

bool SaveCheck::has(int64_t id, const ImportMessage& message) const {
  const std::optional<Row> found = row(id);
  return found && found->text(0) == message.session_id && found->int32(1) == message.session_type &&
         found->int64(2) == message.client_uid;
}

bool SaveCheck::changed_a_row() const {
  if (changes_ == nullptr) return false;
  store_.reset(changes_);
  return store_.step(changes_, false) == SQLITE_ROW && Row(changes_).int32(0) > 0;
}

std::string SaveCheck::text(int64_t id) const {
  const std::optional<Row> found = row(id);
  return found ? row_text(*found) : "";
}

std::optional<Row> SaveCheck::row(int64_t id) const {
  if (message_ == nullptr) return std::nullopt;
  store_.reset(message_);
  Corvan::CvDbSingleton::bind(message_, 1, id);
  if (store_.step(message_, false) != SQLITE_ROW) return std::nullopt;
  return Row(message_);
}

std::string row_text(const Row& row) {
  std::string text;
  for (int i = 0; i < row.size(); ++i) {
    const std::string value = row.text(i);
    fmt::format_to(std::back_inserter(text), "{} {} {}", row.type(i), value.size(), value);
  }
  return text;
}

}  // namespace corvan_tool
