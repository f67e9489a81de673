// The files that an import reads.

#include <string>

#include "tests/tools/import_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ImportFilesTest : public ImportSample {};

TEST_F(ImportFilesTest, ReadsFilesInTheGivenOrder) {
  const std::string a = write("a.jsonl", numbered(2));
  const std::string b = write("b.jsonl", numbered(1, 3));
  const std::string c = write("c.jsonl", numbered(2, 4));
  EXPECT_EQ(counts(import_files({c, a, b}, {"--batch", "3"})),
            "5 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"4", "5", "1", "2", "3"}));
}

TEST_F(ImportFilesTest, CountsLinesPerFile) {
  const std::string a = write("a.jsonl", numbered(3));
  const std::string b = write("b.jsonl", numbered(1, 4) + "\n" + "x\n");
  const Outcome outcome = import_files({a, b}, {"--batch", "3"});
  EXPECT_EQ(outcome.err, "corvan: " + b + ":3: not valid JSON at byte 1\n");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
}

TEST_F(ImportFilesTest, ReadsStandardInput) {
  const std::string a = write("a.jsonl", numbered(1));
  const std::string c = write("c.jsonl", numbered(1, 4));
  const Outcome outcome = run({"import", store(), "--user", "me", a, "-", c}, numbered(2, 2));
  EXPECT_EQ(counts(outcome), "4 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3", "4"}));

  const Outcome bad = run({"import", store(), "--user", "me", "-"}, numbered(2, 8) + "{}");
  EXPECT_EQ(bad.err, "corvan: standard input:3: field \"session_id\": missing\n");
  EXPECT_EQ(contents().size(), 4U);
}

TEST_F(ImportFilesTest, FindsMissingFileBeforeStoringAnything) {
  const std::string a = write("a.jsonl", numbered(2));
  const std::string missing = folder.file("missing.jsonl");
  const Outcome outcome = import_files({a, missing}, {"--batch", "1"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + missing + ": No such file or directory\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportFilesTest, RejectsFolderAsFile) {
  const Outcome outcome = import_files({folder.path()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + folder.path() + ": is a folder; name a file\n");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportFilesTest, EmptyFileCreatesEmptyStore) {
  const Outcome outcome = import_text("");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "0 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select database_version from t_version"), Rows{"1"});
  EXPECT_EQ(contents(), Rows{});
}

TEST_F(ImportFilesTest, AcceptsAllLineEnds) {
  std::string text = numbered(1);
  text.insert(text.size() - 1, "\r");
  text += "\r\n  \t\n\n" + numbered(2, 2);
  text.pop_back();
  EXPECT_EQ(counts(import_text(text)), "3 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
}

TEST_F(ImportFilesTest, SkipsByteOrderMark) {
  EXPECT_EQ(counts(import_text("\xEF\xBB\xBF" + numbered(2))),
            "2 stored, 0 completed, 0 refused, 0 bad");
}

TEST_F(ImportFilesTest, ReadsLongLines) {
  // Sizes around multiples of the block in which files are read.
  const std::size_t empty = line({{"content", ""}}).size() - 1;
  std::string text;
  Rows lengths;
  for (const std::size_t size : {65534U, 65535U, 65536U, 65537U, 131070U, 131071U, 300000U}) {
    text += line({{"content", std::string(size - empty, 'x')}});
    lengths.push_back(std::to_string(size - empty));
  }
  text.pop_back();
  EXPECT_EQ(counts(import_text(text)), "7 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(rows("select length(content) from t_message order by id"), lengths);
}

TEST_F(ImportFilesTest, RejectsFileWithoutLineEnds) {
  const Outcome outcome = import_files({"/dev/zero"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: /dev/zero:1: longer than 64 MiB\n");
  EXPECT_FALSE(store_exists());
}

TEST_F(ImportFilesTest, ReportsEachUnknownKeyOnce) {
  const Outcome outcome = import_text(
      line({{"colour", 1}}) + line({{"colour", 2}, {"mood\n", {{"colour", 3}}}}) + line({}),
      {"--batch", "1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(counts(outcome), "3 stored, 0 completed, 0 refused, 0 bad");
  const std::string rest = " is ignored, here and in later lines\n";
  EXPECT_EQ(outcome.err, "corvan: " + log() + ":1: unknown key \"colour\"" + rest +
                             "corvan: " + log() + ":2: unknown key \"mood\\n\"" + rest);
}

TEST_F(ImportFilesTest, ManyUnknownKeysAreFast) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "\"k" + std::to_string(i) + "\":0,";
  std::string good = line({});
  const Outcome outcome = import_text(good.insert(1, text));
  EXPECT_EQ(counts(outcome), "1 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_NE(outcome.err.find("\"k19999\""), std::string::npos);
}

}  // namespace
}  // namespace corvan_test
