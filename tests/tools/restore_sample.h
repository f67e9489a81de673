// Helpers for the tests of restore.

#ifndef TESTS_TOOLS_RESTORE_SAMPLE_H_
#define TESTS_TOOLS_RESTORE_SAMPLE_H_

#include <string>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {

// An SQL expression for the type and the exact value of a column.
inline std::string exact(const std::string& column) {
  return "typeof(" + column + ")||':'||case typeof(" + column +
         ") when 'real' then printf('%!.20g'," + column + ") else hex(" + column + ") end";
}

class RestoreSample : public ExportSample {
 protected:
  // All values of all tables, the schema and the settings of a file.
  static Rows all_of(const std::string& store_file) {
    Rows result;
    for (const std::string table :
         {"t_message", "t_session", "t_sync", "t_version", "sqlite_sequence"}) {
      std::string sql = "select '" + table + "',rowid";
      for (const std::string& column :
           corvan_test::rows(store_file, "select name from pragma_table_info('" + table + "')")) {
        sql += "," + exact(column);
      }
      for (const std::string& row : corvan_test::rows(store_file, sql + " from " + table)) {
        result.push_back(row);
      }
    }
    for (const char* sql :
         {"select type,name,tbl_name,sql from sqlite_master order by 1,2", "pragma user_version",
          "pragma page_size", "pragma journal_mode", "pragma encoding", "pragma integrity_check"}) {
      for (const std::string& row : corvan_test::rows(store_file, sql)) result.push_back(row);
    }
    return result;
  }

  std::string exported(const Arguments& more = {}) {
    Arguments arguments = {"export", store(), "--format", "jsonl"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return output(arguments);
  }

  std::string restored() const { return folder.file("restored"); }
  std::string restored_file() const { return restored() + "/corvan"; }

  // Restores this text, and expects this error after the name of the file, and no store.
  void expect_bad(const std::string& text, const std::string& error) {
    const Outcome outcome = run({"restore", write("bad.jsonl", text), restored()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + folder.file("bad.jsonl") + error + "\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(names_like("restored"), Rows{});
  }

  static std::string without_time(const std::string& text) {
    Json header = Json::parse(text.substr(0, text.find('\n')));
    header.erase("export_time");
    return header.dump() + text.substr(text.find('\n'));
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_RESTORE_SAMPLE_H_
