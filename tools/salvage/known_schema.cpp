#include "tools/salvage/known_schema.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <utility>

#include "base/cv_database.h"
#include "tools/store/connection.h"
#include "tools/ui/error.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

class NewStoreReader {
 public:
  NewStoreReader() : scratch_(":memory:") {
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) require(scratch_.run(sql));
  }

  SalvageSchema read() {
    each("select name,sql from sqlite_master where type='table' and name not like 'sqlite_%'",
         [this](sqlite3_stmt* row) { add_table(text_at(row, 0), text_at(row, 1)); });
    schema_.messages = place_of("t_message");
    schema_.sessions = place_of("t_session");
    schema_.versions = place_of("t_version");
    schema_.sequences = schema_.tables.size();
    schema_.tables.push_back({"sqlite_sequence", "", {"name", "seq"}, "ti", {}});
    for (std::size_t table = 0; table < schema_.sequences; ++table) {
      each(
          "select name,origin,partial from pragma_index_list(?)",
          [&](sqlite3_stmt* row) {
            add_index(table, text_at(row, 0), text_at(row, 1) != "c",
                      sqlite3_column_int(row, 2) == 0);
          },
          schema_.tables[table].name);
    }
    for (SalvageIndex& index : schema_.indexes) {
      index.is_told_by_shape = std::none_of(
          schema_.indexes.begin(), schema_.indexes.end(), [&index](const SalvageIndex& other) {
            return other.shape == index.shape && other.name != index.name;
          });
    }
    return std::move(schema_);
  }

 private:
  void require(int rc) const {
    if (rc != SQLITE_DONE) throw ToolError("a new store's schema: " + scratch_.error());
  }

  template <typename Read, typename... Arguments>
  void each(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    require(scratch_.each_row(sql, read, arguments...));
  }

  std::size_t place_of(const std::string& name) const {
    const auto found =
        std::find_if(schema_.tables.begin(), schema_.tables.end(),
                     [&name](const SalvageTable& table) { return table.name == name; });
    if (found == schema_.tables.end()) throw ToolError("a new store's schema: no " + name);
    return static_cast<std::size_t>(found - schema_.tables.begin());
  }

  void add_table(const std::string& name, const std::string& sql) {
    SalvageTable table;
    table.name = name;
    table.sql = sql;
    each(
        "select name,lower(type),pk from pragma_table_info(?)",
        [&table](sqlite3_stmt* row) {
          const bool is_integer = text_at(row, 1) == "integer";
          if (is_integer && sqlite3_column_int(row, 2) != 0) {
            table.shape += kRowIdShape;
            return;
          }
          table.columns.push_back(text_at(row, 0));
          table.shape += is_integer ? kIntegerShape : kTextShape;
        },
        name);
    schema_.tables.push_back(std::move(table));
  }

  char shape_of(const SalvageTable& table, const std::string& column) const {
    char shape = kIntegerShape;
    each(
        "select lower(type) from pragma_table_info(?) where name=?",
        [&shape](sqlite3_stmt* row) {
          if (text_at(row, 0) != "integer") shape = kTextShape;
        },
        table.name, column);
    return shape;
  }

  void add_index(std::size_t table, const std::string& name, bool is_part_of_table,
                 bool has_all_rows) {
    SalvageIndex index;
    index.name = name;
    index.table = table;
    index.has_all_rows = has_all_rows;
    if (!is_part_of_table) {
      each(
          "select sql from sqlite_master where name=?",
          [&index](sqlite3_stmt* row) { index.sql = text_at(row, 0); }, name);
    }
    each(
        "select name from pragma_index_xinfo(?)",
        [&](sqlite3_stmt* row) {
          const std::string column = text_at(row, 0);
          const bool is_row_id = sqlite3_column_type(row, 0) == SQLITE_NULL;
          index.columns.push_back(is_row_id ? "rowid" : column);
          index.shape += is_row_id ? kIntegerShape : shape_of(schema_.tables[table], column);
        },
        name);
    if (is_part_of_table) {
      schema_.tables[table].unique.assign(index.columns.begin(), index.columns.end() - 1);
    }
    schema_.indexes.push_back(std::move(index));
  }

  const Connection scratch_;
  SalvageSchema schema_;
};

bool is_of(const Value& value, char shape, bool exactly) {
  if (shape == kRowIdShape) return value.kind == Value::kNull;
  if (!exactly) return true;
  return value.kind == (shape == kTextShape ? Value::kText : Value::kInteger);
}

// The smallest and the largest value that the store writes into a column.
std::pair<std::int64_t, std::int64_t> codes_of(const std::string& column) {
  static const std::map<std::string, std::pair<std::int64_t, std::int64_t>> kCodes = {
      {"direction", {0, 2}}, {"is_mention", {0, 1}}, {"is_top", {0, 1}}};
  const auto found = kCodes.find(column);
  if (found != kCodes.end()) return found->second;
  static constexpr std::array<const char*, 6> kShort = {
      "session_type", "sent_status", "read_status", "unread_count", "mention_count", "silence"};
  if (std::find(kShort.begin(), kShort.end(), column) != kShort.end()) {
    return {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
  }
  return {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()};
}

Doubt doubt_about_value(const std::string& column, char shape, const Value& value) {
  // The store leaves NULL where SQLite refused a text for its length.
  if (shape == kTextShape && value.kind == Value::kNull) return Doubt::kNone;
  if (!is_of(value, shape, true)) return Doubt::kValue;
  if (shape == kTextShape) {
    const bool is_text = is_utf8(value.bytes) && value.bytes.find('\0') == std::string_view::npos;
    return is_text ? Doubt::kNone : Doubt::kText;
  }
  const auto [smallest, largest] = codes_of(column);
  const bool fits = value.integer >= smallest && value.integer <= largest;
  return fits ? Doubt::kNone : Doubt::kValue;
}

struct DoubtTexts {
  const char* word;
  const char* text;
};
constexpr std::array<DoubtTexts, kDoubts> kDoubtTexts = {{
    {"none", ""},
    {"deleted", "on pages that the file lists as free: deleted, as it seems"},
    {"unreached", "on pages that nothing leads to, or named by no index: deleted, as it seems"},
    {"log", "only in the log beyond a damaged commit"},
    {"versions", "with different rows of the same id or key"},
    {"place", "with an id that does not fit between its neighbours"},
    {"text", "with a text that is no UTF-8 or holds a zero byte"},
    {"value", "with a value that its column does not take"},
}};

}  // namespace

SalvageSchema salvage_schema() {
  return NewStoreReader().read();
}

std::vector<std::string> columns_made_by(const std::string& sql) {
  // As SQLite writes it into a schema. The file is not trusted: no query is run.
  constexpr std::string_view kBegin = "CREATE TABLE ";
  if (sql.compare(0, kBegin.size(), kBegin) != 0) return {};
  const Connection scratch(":memory:");
  sqlite3_set_authorizer(
      scratch.handle(),
      [](void*, int action, const char*, const char*, const char*, const char*) {
        return action == SQLITE_SELECT ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  if (scratch.run(sql) != SQLITE_DONE) return {};
  sqlite3_set_authorizer(scratch.handle(), nullptr, nullptr);
  std::vector<std::string> columns;
  scratch.each_row(
      "select c.name from sqlite_master as t,pragma_table_info(t.name) as c where t.type='table' "
      "and t.name not like 'sqlite\\_%' escape '\\' order by c.cid",
      [&columns](sqlite3_stmt* row) { columns.push_back(text_at(row, 0)); });
  return columns;
}

bool has_shape(const std::vector<Value>& values, const std::string& shape, bool exactly,
               std::size_t more) {
  return values.size() >= shape.size() && values.size() - shape.size() <= more &&
         std::equal(shape.begin(), shape.end(), values.begin(),
                    [exactly](char c, const Value& value) { return is_of(value, c, exactly); });
}

const char* doubt_word(Doubt doubt) {
  return kDoubtTexts.at(static_cast<std::size_t>(doubt)).word;
}

const char* doubt_text(Doubt doubt) {
  return kDoubtTexts.at(static_cast<std::size_t>(doubt)).text;
}

Doubt doubt_about(const SalvageTable& table, std::int64_t row_id,
                  const std::vector<Value>& values) {
  const bool has_row_id = table.shape.find(kRowIdShape) != std::string::npos;
  Doubt result = has_row_id && row_id <= 0 ? Doubt::kValue : Doubt::kNone;
  std::size_t column = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (table.shape[i] == kRowIdShape) continue;
    const Doubt doubt = doubt_about_value(table.columns[column++], table.shape[i], values[i]);
    if (doubt != Doubt::kNone) result = doubt;
  }
  return result;
}

}  // namespace corvan_tool
