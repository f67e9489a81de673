// Helpers for the tests of stores with a foreign schema.

#ifndef TESTS_TOOLS_FOREIGN_SCHEMA_SAMPLE_H_
#define TESTS_TOOLS_FOREIGN_SCHEMA_SAMPLE_H_

#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {

class ForeignSchemaSample : public ExportSample {
 protected:
  ForeignSchemaSample() { import_sample(); }

  // Replaces a part of the CREATE statement of a table. The table keeps its rows.
  void change_table(const std::string& table, const std::string& part, const std::string& with) {
    const std::string sql = rows("select sql from sqlite_master where name='" + table + "'")[0];
    const std::size_t at = sql.find(part);
    ASSERT_NE(at, std::string::npos) << sql;
    std::string changed = sql;
    changed.replace(at, part.size(), with);
    for (std::size_t quote = 0; (quote = changed.find('\'', quote)) != std::string::npos;) {
      changed.insert(quote, 1, '\'');
      quote += 2;
    }
    plant("pragma writable_schema=on;update sqlite_master set sql='" + changed + "' where name='" +
          table + "'");
  }

  // Creates a table again with a part of its CREATE statement replaced, and copies these columns.
  void rebuild(const std::string& table, const std::string& columns, const std::string& part,
               const std::string& with) {
    std::string sql = rows("select sql from sqlite_master where name='" + table + "'")[0];
    const std::size_t at = sql.find(part);
    ASSERT_NE(at, std::string::npos) << sql;
    sql.replace(at, part.size(), with);
    plant("alter table " + table + " rename to old_rows;" + sql + ";insert into " + table + "(" +
          columns + ") select " + columns + " from old_rows;drop table old_rows");
  }

  std::vector<std::string> html() {
    const std::string place = folder.file("pages");
    output({"export", store(), "--format", "html", "--output", place});
    std::vector<std::string> texts = {read_file(place + "/index.html")};
    for (const char* page : {"1", "2", "3"}) {
      texts.push_back(read_file(place + "/pages/0000" + page + ".html"));
    }
    std::filesystem::remove_all(place);
    return texts;
  }

  // The records of an export, without the time in the header. `said` receives standard error.
  std::vector<Json> records(std::string& said) {
    const Outcome outcome = run({"export", store(), "--format", "jsonl"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    said = outcome.err;
    std::vector<Json> all = lines(outcome.out);
    if (!all.empty()) all[0].erase("export_time");
    return all;
  }

  // The findings with these codes.
  std::vector<Json> findings(const std::vector<std::string>& codes) {
    std::vector<Json> result;
    const Json all = Json::parse(run({"verify", store(), "--json"}).out);
    for (const Json& finding : all["findings"]) {
      for (const std::string& code : codes) {
        if (finding["code"] == code) result.push_back(finding);
      }
    }
    return result;
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_FOREIGN_SCHEMA_SAMPLE_H_
