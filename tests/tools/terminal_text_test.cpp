// Texts of a store cannot send control sequences to a terminal.

#include <string>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

std::string utf8(int code_point) {
  std::string text;
  if (code_point < 0x80) {
    text = static_cast<char>(code_point);
  } else if (code_point < 0x800) {
    text = static_cast<char>(0xC0 | (code_point >> 6));
    text += static_cast<char>(0x80 | (code_point & 0x3F));
  } else {
    text = static_cast<char>(0xE0 | (code_point >> 12));
    text += static_cast<char>(0x80 | ((code_point >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (code_point & 0x3F));
  }
  return text;
}

// All control characters above U+001F, bidirectional controls and invisible separators.
std::vector<std::string> drivers() {
  std::vector<int> code_points = {0x7F,   0x061C, 0x200E, 0x200F, 0x2028, 0x2029, 0x202A, 0x202B,
                                  0x202C, 0x202D, 0x202E, 0x2066, 0x2067, 0x2068, 0x2069, 0xFEFF};
  for (int c = 0x80; c <= 0x9F; ++c) code_points.push_back(c);
  for (int c = 0x206A; c <= 0x206F; ++c) code_points.push_back(c);
  std::vector<std::string> texts;
  texts.reserve(code_points.size());
  for (const int c : code_points) texts.push_back(utf8(c));
  return texts;
}

std::string all_drivers() {
  std::string text = "\x1b";
  for (const std::string& driver : drivers()) text += driver;
  return text;
}

class TerminalTextTest : public ExportSample {
 protected:
  void expect_harmless(const std::string& text) {
    for (const std::string& driver : drivers()) {
      EXPECT_EQ(text.find(driver), std::string::npos) << Json(driver).dump(-1, ' ', true);
    }
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
  }

  // Expects JSON with the texts of json_text() and no control characters.
  void expect_escaped_json(const Arguments& arguments) {
    const Outcome outcome = run(arguments);
    expect_harmless(outcome.out);
    expect_harmless(outcome.err);
    EXPECT_NE(outcome.out.find(R"(\u007f\u061c\u200e)"), std::string::npos) << arguments[0];
    EXPECT_NE(outcome.out.find("中文 😀 שלום \xE2\x80\x8D "), std::string::npos) << arguments[0];
    EXPECT_NE(Json::parse(outcome.out).dump().find(all_drivers().substr(1)), std::string::npos)
        << arguments[0];
  }

  static std::string json_text() { return "中文 😀 שלום \xE2\x80\x8D " + all_drivers() + "é"; }
};

TEST_F(TerminalTextTest, JsonEscapesControlCharacters) {
  const std::string text = json_text();
  import(line({{"session_id", text}, {"content", text}, { "sender", text }}));
  plant("update t_session set unread_count=9,title=session_id,draft=session_id");
  plant("create table \"" + text + "\"(a)");
  expect_escaped_json({"list", store(), "--json"});
  expect_escaped_json({"history", store(), text, "--type", "2", "--json"});
  expect_escaped_json({"show", store(), "1", "--json"});
  expect_escaped_json({"search", store(), "中", "--json"});
  expect_escaped_json({"stats", store(), "--json"});
  expect_escaped_json({"verify", store(), "--json"});
  expect_escaped_json({"verify", store(), "--json", "--repair", "counters", "--dry-run"});
}

TEST_F(TerminalTextTest, JsonEscapesControlCharactersInNamesOfFolders) {
  import(line({}));
  expect_escaped_json({"backup", store(), folder.file("b" + json_text()), "--json"});
}

TEST_F(TerminalTextTest, JsonlExportIsHarmlessAndExact) {
  import(line({}));
  const std::string text = all_drivers() +
                           "ordinary text around them, longer than hexadecimal "
                           "digits would be, so that it stays a text in JSON; "
                           "ordinary text around them, and then some more of it";
  const auto restored = [&] {
    const Outcome exported = run({"export", store(), "--format", "jsonl"});
    expect_harmless(exported.out);
    EXPECT_EQ(run({"restore", "-", folder.file("restored")}, exported.out).status, 0);
    Rows content = corvan_test::rows(folder.file("restored") + "/corvan",
                                     "select hex(content) from t_message");
    std::filesystem::remove_all(folder.file("restored"));
    return content;
  };
  for (const std::string& content : {text, all_drivers(), "a" + text + "\xC2\x9B",
                                     std::string("\\u009b\xC2\x9B\\\xC2\x9B\"\xC2\x9B")}) {
    std::string sql = "cast(x'";
    for (const char c : content) {
      static constexpr const char* kDigits = "0123456789abcdef";
      sql += kDigits[static_cast<unsigned char>(c) >> 4];
      sql += kDigits[static_cast<unsigned char>(c) & 15];
    }
    plant("update t_message set content=" + sql + "' as text)");
    EXPECT_EQ(restored(), rows("select hex(content) from t_message"));
  }
  EXPECT_EQ(lines(run({"export", store(), "--format", "jsonl"}).out).size(), 6U);
}

// Escapes are longer than the characters that they replace. A restore accepts lines of up to twice
// the size of the text.
TEST_F(TerminalTextTest, ControlCharactersAtMostDoubleAnExport) {
  import(line({}));
  for (const std::string& driver : drivers()) {
    std::string text;
    for (int i = 0; i < 1000; ++i) text += driver;
    plant("update t_message set content='" + text + "'");
    const std::string exported = output({"export", store(), "--format", "jsonl"});
    EXPECT_LT(exported.size(), 2 * text.size() + 1500);
    EXPECT_EQ(run({"restore", "-", folder.file("restored")}, exported).status, 0);
    EXPECT_EQ(
        corvan_test::rows(folder.file("restored") + "/corvan", "select content from t_message")[0],
        text);
    std::filesystem::remove_all(folder.file("restored"));
  }
}

TEST_F(TerminalTextTest, TablesAndErrorsEscapeControlCharacters) {
  const std::string text = "x" + all_drivers();
  import(line({{"session_id", text}, {"content", text}, { "sender", text }}));
  plant("update t_session set unread_count=9,title=session_id");
  plant("create table \"" + text + "\"(a);insert into t_sync values('" + text + "',-1,5)");
  const std::string other = folder.file(text);
  for (const Arguments& arguments : std::vector<Arguments>{
           {"list", store()},
           {"history", store(), text, "--type", "2"},
           {"show", store(), "1"},
           {"search", store(), "x"},
           {"search", store(), "x", "--before", text},
           {"stats", store()},
           {"verify", store()},
           {"verify", store(), "--repair", "counters", "--dry-run"},
           {"export", store(), "no" + text, "--format", "csv"},
           {"export", store(), "--format", "csv", "--output", other},
           {"restore", other, other},
           {"backup", store(), folder.file("b" + text)},
           {"index", other},
           {"search-index", other},
           {"search-index", other, "--remove"},
           {"list", store(), "--type", text},
           {"import", store(), "--user", "me", other},
       }) {
    const Outcome outcome = run(arguments);
    expect_harmless(outcome.out);
    expect_harmless(outcome.err);
    EXPECT_NE((outcome.out + outcome.err).find("\\x7f\\u061c\\u200e"), std::string::npos)
        << arguments[0] << ": " << outcome.out << outcome.err;
  }
}

TEST_F(TerminalTextTest, ErrorsEscapeControlCharactersInNamesOfLogs) {
  const std::string text = "x" + all_drivers();
  const std::string log = write("l" + text, "{\"" + text + "\":1}\n\"" + text + "\n");
  const Outcome bad = run({"import", store(), "--user", "me", "--skip-bad", log});
  expect_harmless(bad.err);
  EXPECT_NE(bad.err.find("\\x7f\\u061c\\u200e"), std::string::npos) << bad.err;
}

TEST_F(TerminalTextTest, CsvIsEscapedOnlyOnATerminal) {
  const std::string text = "=" + all_drivers() + "\r\n\t中\"";
  import(line({{"session_id", text}, {"content", text}, { "sender", text }}));
  plant("update t_session set title=session_id");
  plant("update t_message set client_uid=session_id");
  const auto shown = terminal_output({"export", store(), "--format", "csv"}, 80);
  if (!shown) GTEST_SKIP() << "no terminals on this machine";
  std::string all;
  for (const char c : *shown) {
    if (c != '\r' && c != '\n') all += c;
  }
  expect_harmless(all);
  EXPECT_EQ(shown->find("id,kind,"), 0U) << *shown;
  EXPECT_NE(all.find(R"("'=\x1b\x7f\u061c\u200e)"), std::string::npos) << all;
  EXPECT_NE(all.find(R"(\r\n\t中""")"), std::string::npos) << all;

  const std::string place = folder.file("out.csv");
  output({"export", store(), "--format", "csv", "--output", place});
  std::string field = text;
  field.insert(field.size() - 1, "\"");
  EXPECT_NE(read_file(place).find("\"'" + field + "\""), std::string::npos);
  EXPECT_EQ(output({"export", store(), "--format", "csv"}), read_file(place));
}

}  // namespace
}  // namespace corvan_test
