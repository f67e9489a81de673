// What users of the tool on Windows meet: their names of files, line ends, interrupts.

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class WindowsTest : public LookTest {
 protected:
  // A folder as a user types it.
  static std::string with_backslashes(std::string path) {
    for (char& character : path) {
      if (character == '/') character = '\\';
    }
    return path;
  }

  static std::string with_crlf(const std::string& text) {
    std::string changed;
    for (const char character : text)
      changed += character == '\n' ? "\r\n" : std::string(1, character);
    return changed;
  }
};

TEST_F(WindowsTest, TakesAndShowsNamesInUnicode) {
  const std::string name = "聊天记录 😀";
  const std::string typed = with_backslashes(folder.file(name + "/商店"));
  const std::string log = with_backslashes(write("日志.jsonl", line({{"content", "你好 😀"}})));
  EXPECT_EQ(run({"import", typed, "--user", "我", log}).status, 0) << read_err();
  EXPECT_TRUE(file_exists(folder.file(name + "/商店/corvan")));
  EXPECT_NE(output({"search", typed, "你好"}).find("你好 😀"), std::string::npos);
  EXPECT_EQ(json({"list", typed, "--json"})[0]["message"]["content"], "你好 😀");
  const std::string copy = with_backslashes(folder.file(name + "/备份"));
  EXPECT_EQ(output({"backup", typed, copy}).find(copy), 0U);
  const std::string missing = with_backslashes(folder.file(name + "/没有"));
  EXPECT_EQ(run({"list", missing}).err.find("corvan: " + missing), 0U) << read_err();
}

TEST_F(WindowsTest, RefusesOtherSpellingsOfTheNameOfAStoresFile) {
  import_sample();
  for (const char* const name : {"CORVAN-JOURNAL", "corvan-wal.", "Corvan-Search. ."}) {
    const std::string place = with_backslashes(store()) + "\\" + name;
    EXPECT_EQ(run({"export", store(), "--format", "jsonl", "--output", place}).status, 2) << name;
    EXPECT_NE(read_err().find("the name of a store's own file"), std::string::npos) << read_err();
  }
}

TEST_F(WindowsTest, WritesFoldersWithLongPaths) {
  import_sample();
  const std::string name(120, 'n');
  const std::string parent = folder.file(name + "/" + name);
  std::filesystem::create_directories(std::filesystem::u8path(parent));
  const Outcome outcome = run({"backup", store(), parent + "/copy"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(run({"check", parent + "/copy"}).status, 0) << read_err();
}

TEST_F(WindowsTest, RefusesAMissingDrive) {
  const std::string log = write("log.jsonl", line({}));
  for (const char* const place : {"q:", "q:/", "q:/s", "q:\\s\\t"}) {
    EXPECT_EQ(run({"import", place, "--user", "me", log}).status, 2) << place;
  }
}

TEST_F(WindowsTest, TakesArgumentsThatBeginWithASlash) {
  import_sample();
  EXPECT_EQ(run({"search", store(), "/x"}).err, "corvan: no such messages\n");
}

TEST_F(WindowsTest, AcceptsABackslashAtTheEndOfAFolder) {
  import_sample();
  const std::string typed = with_backslashes(store()) + "\\";
  for (const Arguments& arguments : commands(typed)) EXPECT_EQ(run(arguments).status, 0);
  EXPECT_EQ(output({"backup", typed, with_backslashes(folder.file("new")) + "\\"}).empty(), false);
  EXPECT_TRUE(file_exists(folder.file("new/corvan")));
}

TEST_F(WindowsTest, KeepsQuotationMarksAndPatternsInArguments) {
  const std::vector<std::string> texts = {"a \"b\" c", "\\\\\"", "ends \\", "*", "?", "%TMP%"};
  for (const std::string& text : texts) {
    import(line({{"session_id", text}, { "content", "to " + text }}));
  }
  for (const std::string& text : texts) {
    const Json found = json({"history", store(), text, "--type", "group", "--json"});
    ASSERT_EQ(found.size(), 1U) << text;
    EXPECT_EQ(found[0]["content"], "to " + text);
  }
}

TEST_F(WindowsTest, OutputHasNoCarriageReturns) {
  import_sample();
  std::vector<Arguments> all = commands(store());
  all.push_back({"--help"});
  all.push_back({"stats", store()});
  all.push_back({"verify", store()});
  all.push_back({"export", store(), "--format", "jsonl"});
  for (const Arguments& arguments : all) {
    EXPECT_EQ(output(arguments).find('\r'), std::string::npos) << arguments[0];
  }
  EXPECT_EQ(run({"list", folder.file("none")}).err.find('\r'), std::string::npos);
  const std::string exported = output({"export", store(), "--format", "csv"});
  output({"export", store(), "--format", "csv", "--output", folder.file("out.csv")});
  EXPECT_EQ(read_file(folder.file("out.csv")), exported);
  EXPECT_EQ(exported.find("\r\r\n"), std::string::npos);
}

TEST_F(WindowsTest, ReadsFilesWithWindowsLineEnds) {
  const std::string lines = line({{"content", "first"}}) + line({{"content", "a\r\nb\x1a"}});
  const std::string log = write("log.jsonl", with_crlf(lines));
  EXPECT_EQ(run({"import", store(), "--user", "me", log}).status, 0) << read_err();
  EXPECT_EQ(rows("select content from t_message order by id"), (Rows{"first", "a\r\nb\x1a"}));
  const std::string exported = output({"export", store(), "--format", "jsonl"});
  const std::string restored = folder.file("restored");
  EXPECT_EQ(run({"restore", "-", restored}, with_crlf(exported)).status, 0) << read_err();
  EXPECT_EQ(corvan_test::rows(restored + "/corvan", "select * from t_message"),
            rows("select * from t_message"));
}

TEST_F(WindowsTest, AnInterruptRemovesTheTemporaryCopy) {
  std::string lines;
  for (int i = 0; i < 2000; ++i) lines += line({{"content", std::string(5000, 'x')}});
  import(lines);
  const Pipe pipe = make_pipe();
  // It waits until its output is read.
  const pid_t pid = start({"export", store(), "--format", "jsonl"}, pipe.write_end);
  char byte = 0;
  ASSERT_EQ(read(pipe.read_end, &byte, 1), 1);
  EXPECT_EQ(listing(copies()).size(), 1U);
  interrupt_process(pid, interrupts()[0]);
  EXPECT_EQ(wait(pid), interrupted_status(interrupts()[0]));
  EXPECT_EQ(listing(copies()), Listing{});
  close(pipe.read_end);
}

}  // namespace
}  // namespace corvan_test
