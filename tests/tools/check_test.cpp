#include <regex>
#include <string>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class CheckTest : public LookTest {};

TEST_F(CheckTest, AcceptsASoundStore) {
  import_sample();
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(json({"check", store(), "--json"}), Json::parse(R"({"ok":true,"result":"ok"})"));
}

TEST_F(CheckTest, FindsADamagedPage) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += line({{"content", std::string(50, 'x')}});
  import(text);
  const std::string whole = read_file(file());
  for (const char* name : {"t_message", "t_message_session", "t_session"}) {
    const std::string root =
        rows("select rootpage from sqlite_master where name='" + std::string(name) + "'").at(0);
    std::string bytes = whole;
    bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
    write_file(file(), bytes);
    const Listing before = listing(store());
    const Outcome outcome = run({"check", store()});
    EXPECT_EQ(outcome.status, 1) << name << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_NE(outcome.out, "ok\n");
    EXPECT_TRUE(std::regex_search(outcome.out, std::regex("\\b[Pp]age " + root + "\\b")))
        << outcome.out;
    const Outcome program = run({"check", store(), "--json"});
    EXPECT_EQ(program.status, 1);
    EXPECT_EQ(Json::parse(program.out)["ok"], false);
    EXPECT_EQ(listing(store()), before);
    write_file(file(), whole);
  }
}

TEST_F(CheckTest, PrintsOneFindingPerLine) {
  import_sample();
  plant(
      "create index by_sender on t_message(sender) where id>3;pragma writable_schema=on;"
      "update sqlite_master set sql='create index by_sender on t_message(sender)' "
      "where name='by_sender'");
  const Outcome text = run({"check", store()});
  EXPECT_EQ(text.status, 1);
  const Rows findings = rows("pragma integrity_check");
  ASSERT_GT(findings.size(), 1U);
  std::string lines;
  for (const std::string& finding : findings) lines += finding + "\n";
  EXPECT_EQ(text.out, lines);
  const Json program = Json::parse(run({"check", store(), "--json"}).out);
  EXPECT_EQ(program["result"].get<std::string>() + "\n", text.out);
}

}  // namespace
}  // namespace corvan_test
