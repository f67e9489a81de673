#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class CsvExportTest : public ExportSample {};

TEST_F(CsvExportTest, WritesOneRecordPerMessageInOrder) {
  import(line({{"content", "second"},
               {"sent_time", 1700000002000},
               { "server_uid",
                 "s2" }}) +
         line({{"content", "first, \"quoted\"\nline"},
               { "is_mention",
                 true }}) +
         line({{"session_id", "u02"},
               {"session_type", 1},
               {"sender", "me"},
               {"is_receive", false},
               {"sent_status", 2},
               {"client_uid", 7},
               { "content",
                 "下午开会吗？" }}));
  plant("update t_session set title='Tea, daily' where session_id='room'");
  EXPECT_EQ(output({"export", store(), "--format", "csv"}),
            std::string(kCsvHeadings) +
                R"(2,group,"room","Tea, daily",2023-11-14 22:13:20,"u01",received,"CV:TxtMsg",)"
                "\"first, \"\"quoted\"\"\nline\",sent,unread,1,1700000000000,0,\"\"\r\n"
                R"(1,group,"room","Tea, daily",2023-11-14 22:13:22,"u01",received,"CV:TxtMsg",)"
                "\"second\",sent,unread,0,1700000002000,0,\"s2\"\r\n"
                R"(3,private,"u02","",2023-11-14 22:13:20,"me",own,"CV:TxtMsg",)"
                "\"下午开会吗？\",failed,read,0,1700000000000,7,\"\"\r\n");
}

TEST_F(CsvExportTest, TextsHaveNoFormulasAndNoZeroBytes) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"'=1+1'", "'=1+1"},
      {"'+1'", "'+1"},
      {"'-1'", "'-1"},
      {"'@a'", "'@a"},
      {"char(9)||'=1'", "'\t'=1"},
      {"char(13)||'=1'", "'\r'=1"},
      {"char(10)||'=1'", "'\n'=1"},
      {"char(9)||'1'", "'\t1"},
      {"' =1'", " '=1"},
      {"'＝1'", "'＝1"},
      {"'＋1'", "'＋1"},
      {"'－1'", "'－1"},
      {"'＠a'", "'＠a"},
      {"'1=1'", "1=1"},
      {"'a,=1'||char(10)||'b,=1, -2,c'", "a,=1\nb,'=1, '-2,c"},
      {"'a,b'||char(8232)||'c,=1'", "a,b\u2028c,'=1"},
      {"'a;=1'", "a;'=1"},
      {"'a،=1，-2、@b，c'", "a،'=1，'-2、'@b，c"},
      {"char(160,8203,12288,65279)||'=1'", "\u00A0\u200B\u3000\uFEFF'=1"},
      {"'a;'||char(65279)||'=1'||char(160)||'=2'", "a;\uFEFF'=1\u00A0=2"},
      {"'a; +1;b;-1|@c'||char(9)||'=1'", "a; '+1;b;'-1|'@c\t'=1"},
      {"'list:'||char(10)||'- milk'||char(13,10)||'- tea'", "list:\n'- milk\r\n'- tea"},
      {"'a؛=1；＝2'||char(8232)||'=3'", "a؛'=1；'＝2\u2028'=3"},
      {"'a;\"=1'", "a;\"\"'=1"},
      {"char(9,9,9)||'=1'", "'\t\t\t'=1"},
      {"char(10)||' \"'||char(9)||' =1'", "'\n \"\"\t '=1"},
      {"'5 - 3 = 2 :-) a,b; c|d me@x;y'", "5 - 3 = 2 :-) a,b; c|d me@x;y"},
      {"cast(x'610062' as text)",
       "a\xEF\xBF\xBD"
       "b"},
      {"cast(x'61ff62' as text)",
       "a\xEF\xBF\xBD"
       "b"},
      {"null", ""},
  };
  import(line({}));
  for (const auto& [sql, field] : cases) {
    plant("update t_message set content=" + sql);
    EXPECT_EQ(output({"export", store(), "--format", "csv"}),
              std::string(kCsvHeadings) +
                  R"(1,group,"room","",2023-11-14 22:13:20,"u01",received,"CV:TxtMsg",")" + field +
                  "\",sent,unread,0,1700000000000,0,\"\"\r\n")
        << sql;
  }
}

// The cells in the eyes of a program that separates fields by `separator` and recognises quotes
// only at the beginning of a field. With `splits_quoted`, the program ends a record at every line
// end, even within quotes.
std::vector<std::string> cells(const std::string& csv, char separator, bool splits_quoted) {
  enum { kBegin, kPlain, kQuoted, kAfterQuote } state = kBegin;
  std::vector<std::string> all(1);
  for (const char c : csv) {
    const bool ends_line = c == '\n' || c == '\r';
    if (state == kBegin && c == '"') {
      state = kQuoted;
    } else if (state == kQuoted && c == '"') {
      state = kAfterQuote;
    } else if ((ends_line && splits_quoted) ||
               (state != kQuoted && (c == separator || ends_line))) {
      all.emplace_back();
      state = kBegin;
    } else {
      all.back() += c;
      const bool goes_on = state == kQuoted || (state == kAfterQuote && c == '"');
      state = goes_on ? kQuoted : kPlain;
    }
  }
  return all;
}

void expect_no_formula(const std::string& csv, char separator, bool splits_quoted) {
  for (const std::string& cell : cells(csv, separator, splits_quoted)) {
    const std::size_t first = cell.find_first_not_of(" \t");
    const bool is_formula = first != std::string::npos && std::string("=+-@").find(cell[first]) < 4;
    EXPECT_FALSE(is_formula) << cell << " with " << separator << " in " << csv;
  }
}

TEST_F(CsvExportTest, NoProgramFindsFormula) {
  import(line({}));
  for (const char* const text :
       {"=1+1", "x;=1+1", "x;\"=1+1", "x;\"\"\"=1+1", ";=1+1", "x;;=1;", "x|@y", "x\t-1", "x\n=1",
        "x;\n=1\n", "x; =1", "x;\t=1", "\"x\";\"=1\"", "x;\" =1", "x\r\n+1;\r=1", "x\t\"\"+1",
        "x\ny,=1+1", "x,=1\r\n,=1"}) {
    plant("update t_message set content='" + std::string(text) + "',sender=content,server_uid='" +
          text + "',object_name=content,client_uid=content");
    plant("update t_session set title='" + std::string(text) + "'");
    const std::string csv = output({"export", store(), "--format", "csv"});
    for (const char separator : {',', ';', '\t', '|'}) {
      for (const bool splits_quoted : {false, true}) {
        expect_no_formula(csv, separator, splits_quoted);
      }
    }
  }
}

TEST_F(CsvExportTest, LineEndInOneTextAddsNoFormulaToTheNext) {
  import(line({}));
  plant("update t_message set object_name='a'||char(10),content='b,=1+1'");
  const std::string csv = output({"export", store(), "--format", "csv"});
  expect_no_formula(csv, ',', true);
  EXPECT_NE(csv.find("\"b,'=1+1\""), std::string::npos) << csv;
}

TEST_F(CsvExportTest, TimeIsLinearInNumberOfTabs) {
  constexpr std::size_t kTabs = 1000000;
  import(line({}));
  plant("update t_message set content=replace(printf('%.*c'," + std::to_string(kTabs) +
        ",'x'),'x',char(9))||'=1'");
  most_seconds = 20;
  const Outcome outcome = run({"export", store(), "--format", "csv"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_NE(outcome.out.find(",\"'" + std::string(kTabs, '\t') + "'=1\","), std::string::npos);
}

TEST_F(CsvExportTest, WritesInvalidCodesAsTheyAre) {
  import(line({}));
  for (const auto& [value, field] :
       std::vector<std::pair<std::string, std::string>>{{"null", ""},
                                                        {"'=text'", "\"'=text\""},
                                                        {"4294967296", "4294967296"},
                                                        {"-1", "-1"},
                                                        {"0.5", "0.5"}}) {
    plant("update t_message set session_type=" + value + ",direction=" + value +
          ",sent_status=" + value + ",read_status=" + value);
    const std::string csv = output({"export", store(), "--format", "csv"});
    EXPECT_EQ(csv, std::string(kCsvHeadings) + "1," + field +
                       R"(,"room","",2023-11-14 22:13:20,"u01",)" + field +
                       R"(,"CV:TxtMsg","hi",)" + field + "," + field +
                       ",0,1700000000000,0,\"\"\r\n");
  }
}

}  // namespace
}  // namespace corvan_test
