// Checks what a save has left in the store, through the library's own connection.

#ifndef TOOLS_IMPORT_SAVE_CHECK_H_
#define TOOLS_IMPORT_SAVE_CHECK_H_

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>

#include "db/cv_db_singleton.h"
#include "tools/import/log_line.h"
#include "tools/store/connection.h"

namespace corvan_tool {

// The library logs a read that fails; the result is then false or empty.
class SaveCheck {
 public:
  // The object holds two prepared statements; destroy it before the store is closed.
  explicit SaveCheck(Corvan::CvDbSingleton& store);
  SaveCheck(const SaveCheck&) = delete;
  SaveCheck& operator=(const SaveCheck&) = delete;
  ~SaveCheck();

  // Whether there is a row with this id, and it has the message's conversation and client uid.
  bool has(int64_t id, const ImportMessage& message) const;

  // Whether the last insert, update or delete changed a row. Changes by triggers do not count.
  bool changed_a_row() const;

  // row_text() of the row with this id; empty if there is none.
  std::string text(int64_t id) const;

 private:
  std::optional<Row> row(int64_t id) const;

  Corvan::CvDbSingleton& store_;
  sqlite3_stmt* message_;
  sqlite3_stmt* changes_;
};

// The query for one message, by id.
extern const char* const kMessageRow;

// A row as text. Two texts are equal if and only if all columns are equal.
std::string row_text(const Row& row);

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_SAVE_CHECK_H_
