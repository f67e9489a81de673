// Looks at what a save has left in the store, through the store's own connection.

#ifndef TOOLS_IMPORT_LOOK_UP_H_
#define TOOLS_IMPORT_LOOK_UP_H_

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "db/cv_db_singleton.h"
#include "tools/import/log_line.h"

namespace corvan_tool {

// A read that fails is logged by the store, and gives "no".
class ImportLookUp {
 public:
  // Keeps two statements prepared while the object lives.
  explicit ImportLookUp(Corvan::CvDbSingleton& store);
  ImportLookUp(const ImportLookUp&) = delete;
  ImportLookUp& operator=(const ImportLookUp&) = delete;
  ~ImportLookUp();

  // Whether the row of this id is in the message's conversation and has its client uid.
  bool has(int64_t id, const ImportMessage& message) const;

  // Whether the last insert, update or deletion changed a row; triggers' own do not count.
  bool changed_a_row() const;

  // row_text() of the row; empty if there is none.
  std::string text(int64_t id) const;

 private:
  sqlite3_stmt* row(int64_t id) const;

  Corvan::CvDbSingleton& store_;
  sqlite3_stmt* message_;
  sqlite3_stmt* changes_;
};

// What text() is made from: the query, which takes an id, and a row of it as text. The texts are
// equal if and only if all columns are.
extern const char* const kMessageRow;
std::string row_text(sqlite3_stmt* row);

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_LOOK_UP_H_
