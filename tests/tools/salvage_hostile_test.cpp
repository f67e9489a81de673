// Files that were made to exhaust memory or time. Whatever they claim, memory, time and output are
// bounded by the bytes that exist.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "tests/tools/hostile_pages.h"
#include "tests/tools/program.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kMaxPage = std::numeric_limits<std::uint32_t>::max();

class SalvageHostileTest : public ToolTest {
 protected:
  SalvageHostileTest() : salvaged(folder.file("salvaged")) {
    import(line({{"content", "mine"}, { "server_uid", "s1" }}));
    sound = read_file(file());
    most_seconds = 60;
    most_memory = std::uint64_t{256} << 20;
  }

  // Salvages within the bounds, removes the new store, and returns the report.
  Json salvage() {
    const Outcome outcome = run({"salvage", store(), salvaged, "--doubtful", "--json"});
    EXPECT_TRUE(outcome.status == 0 || outcome.status == 1) << outcome.status << outcome.err;
    std::error_code none;
    made = fs::file_size(salvaged + "/corvan", none);
    if (none) made = 0;
    EXPECT_LT(outcome.out.size(), std::size_t{1} << 20);
    fs::remove_all(salvaged);
    return outcome.out.empty() ? Json() : Json::parse(outcome.out);
  }

  // Page 1 of a file with pages of 64 KiB, whose schema has a table t_message with this root.
  static std::string first_page(std::uint32_t root, std::uint32_t declared) {
    const std::string sql = "CREATE TABLE t_message(id integer)";
    const std::string types = varint(13 + 2 * 5) + varint(13 + 2 * 9) + varint(13 + 2 * 9) +
                              varint(4) + varint(13 + 2 * sql.size());
    const std::string record = varint(types.size() + 1) + types + "table" + "t_message" +
                               "t_message" + big_endian(root, 4) + sql;
    std::string page(kLarge, '\0');
    const std::string cell = varint(record.size()) + varint(1) + record;
    page.replace(kLarge - cell.size(), cell.size(), cell);
    page.replace(0, 16, std::string("SQLite format 3\0", 16));
    page.replace(16, 8, std::string("\0\1\2\2\0@  ", 8));
    page.replace(24, 8, big_endian(7, 4) + big_endian(declared, 4));
    page.replace(92, 4, big_endian(7, 4));
    page.replace(100, 8, std::string("\r\0\0\0\1", 5) + big_endian(kLarge - cell.size(), 2) + '\0');
    return page.replace(108, 2, big_endian(kLarge - cell.size(), 2));
  }

  static constexpr std::size_t kLarge = 65536;
  std::string sound;
  const std::string salvaged;
  std::uintmax_t made = 0;  // the size of the last new store
};

TEST_F(SalvageHostileTest, BoundsALogThatClaimsHugePages) {
  const std::vector<std::vector<LogFrame>> cases = {
      {{0x3fffffff, 0x3fffffff, ""}},
      {{kMaxPage, kMaxPage, ""}},
      {{0x80000000, kMaxPage, "x"}, {2, kMaxPage, ""}, {kMaxPage - 1, kMaxPage, "x"}},
      {{kMaxPage, 1, ""}},
      {{1, kMaxPage, ""}, {kMaxPage, 0, ""}}};
  for (const bool with_file : {false, true}) {
    for (const std::size_t size : {std::size_t{512}, kPageSize, kLarge}) {
      for (const std::vector<LogFrame>& frames : cases) {
        SCOPED_TRACE(std::to_string(size) + " " + std::to_string(frames[0].page));
        LogText log(size);
        for (const LogFrame& frame : frames) log.add(frame);
        fs::remove(file());
        if (with_file) write_file(file(), sound);
        write_file(file() + "-wal", log.text());
        salvage();
      }
    }
  }
}

TEST_F(SalvageHostileTest, LogThatClaimsAHugePageHidesNoOtherPage) {
  LogText log(kPageSize);
  log.add({0x3fffffff, 0x3fffffff, ""});
  write_file(file() + "-wal", log.text());
  const Json report = salvage();
  EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1);
  EXPECT_EQ(report["pages"], 0x3fffffff);
  EXPECT_EQ(report["log"]["fits"], false);
  const std::size_t in_file = sound.size() / kPageSize;
  EXPECT_EQ(report["bad_pages"], Json::array({{{"first", in_file + 1},
                                               {"last", 0x3ffffffe},
                                               {"what", "neither in the file nor in the log"}}}));
}

TEST_F(SalvageHostileTest, ReadsAFileOfHoles) {
  // The file is 4 TiB long, with the rows at its beginning.
  const std::uintmax_t size = std::uintmax_t{1} << 42;
  std::error_code error;
  fs::resize_file(file(), size, error);
  if (error) GTEST_SKIP() << "the file system has no files of this size";
  const Json report = salvage();
  EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1);
  EXPECT_EQ(report["pages"], size / kPageSize);
  EXPECT_GE(report["zero_pages"], (size - sound.size()) / kPageSize - 1);
}

TEST_F(SalvageHostileTest, ReadsALogOfHoles) {
  LogText log(kPageSize);
  log.add({1, static_cast<std::uint32_t>(sound.size() / kPageSize), sound.substr(0, kPageSize)});
  for (const std::string& begin : {log.text(), std::string(100, 'x'), std::string()}) {
    SCOPED_TRACE(begin.size());
    write_file(file() + "-wal", begin);
    std::error_code error;
    fs::resize_file(file() + "-wal", std::uintmax_t{1} << 42, error);
    if (error) GTEST_SKIP() << "the file system has no files of this size";
    const Json report = salvage();
    EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1);
    const bool is_log = begin == log.text();
    EXPECT_EQ(report["log"]["used"], is_log ? 1 : 0);
    EXPECT_EQ(report["log"]["damaged"], !is_log);
    EXPECT_EQ(report["log"]["unusable"], 0);
  }
}

TEST_F(SalvageHostileTest, FindsCommitsOfADamagedLogAfterAHole) {
  LogText log(kPageSize);
  const auto pages = static_cast<std::uint32_t>(sound.size() / kPageSize);
  for (int i = 0; i < 3; ++i) log.add({2, pages, sound.substr(kPageSize, kPageSize)});
  std::string text = log.text();
  text.replace(0, 32, 32, '\0');
  write_file(file() + "-wal", text);
  EXPECT_EQ(salvage()["log"]["unusable"], 2);
  fs::resize_file(file() + "-wal", std::uintmax_t{1} << 30);
  EXPECT_EQ(salvage()["log"]["unusable"], 2);
}

TEST_F(SalvageHostileTest, BoundsMemoryForManyPointersFromPageToPage) {
  // A chain of inner pages, each of which has only pointers to the next one.
  most_memory = std::uint64_t{128} << 20;
  constexpr std::uint32_t kPages = 160;
  std::string content = first_page(2, 0);
  for (std::uint32_t i = 0; i < kPages; ++i) {
    content += tree_page(kLarge, 5, {big_endian(3 + i, 4) + varint(1)}, (kLarge - 100) / 2);
  }
  write_file(file(), content);
  salvage();
}

TEST_F(SalvageHostileTest, ReadsAPageAFewTimesDespiteManyPointers) {
  // A tree of 20 inner pages, all of whose pointers lead to the same page of rows of another table.
  std::vector<std::string> children;
  const std::size_t pointers = (kLarge - 100) / 2;
  std::string inner_pages;
  const std::string inner = tree_page(kLarge, 5, {big_endian(3, 4) + varint(1)}, pointers);
  for (std::uint32_t i = 0; i < 20; ++i) {
    children.push_back(big_endian(4 + i, 4) + varint(1000000 + i));
    inner_pages += inner;
  }
  const std::string leaf = tree_page(kLarge, 13, {message_cell(5, 'x', 1)}, pointers);
  write_file(file(), first_page(2, 0) + tree_page(kLarge, 5, children) + leaf + inner_pages);
  salvage();
}

TEST_F(SalvageHostileTest, NotesOnlySomePointersBeyondTheEnd) {
  std::string content = first_page(2, kMaxPage - 1);
  std::vector<std::string> children;
  for (std::uint32_t i = 0; i < 20; ++i) children.push_back(big_endian(3 + i, 4) + varint(2 + i));
  content += tree_page(kLarge, 5, children);
  for (std::uint32_t i = 0; i < 20; ++i) {
    std::vector<std::string> beyond;
    for (std::uint32_t j = 0; j < 9000; ++j) {
      beyond.push_back(big_endian(1000000 + 3 * (i * 10000 + j), 4) + varint(1));
    }
    content += tree_page(kLarge, 5, beyond);
  }
  write_file(file(), content);
  salvage();
}

TEST_F(SalvageHostileTest, BoundsTheRowsOfOverlappingCells) {
  for (const bool are_listed_as_free : {false, true}) {
    std::string content = first_page(0, 0);
    if (are_listed_as_free) content.replace(32, 8, big_endian(2, 4) + big_endian(1, 4));
    for (int i = 0; i < 10; ++i) {
      const std::string cell = message_cell(7 + i, static_cast<char>('a' + i), kLarge / 4);
      content += tree_page(kLarge, 13, {cell}, kLarge / 3);
    }
    write_file(file(), content);
    const Json rows = salvage()["tables"]["t_message"];
    EXPECT_GT(rows["recovered"].get<int>() + rows["taken"].get<int>(), 0);
    EXPECT_LT(made, 10 * content.size());
  }
}

TEST_F(SalvageHostileTest, ReadsSharedOverflowPagesAFewTimes) {
  // Rows of unreached leaves that all continue on one chain of 40 pages, then on one page that
  // points to itself.
  constexpr std::uint32_t kLeaves = 24;
  constexpr std::uint32_t kChain = 40;
  const MessageRecord record = message_record(kChain * (kLarge - 4));
  const std::size_t least = (kLarge - 12) * 32 / 255 - 23;
  const auto wanted = static_cast<std::size_t>(least + (record.size - least) % (kLarge - 4));
  const std::size_t held = wanted <= kLarge - 35 ? wanted : least;
  for (const bool is_loop : {false, true}) {
    std::string content = first_page(0, 0);
    for (std::uint32_t i = 0; i < kLeaves; ++i) {
      std::vector<std::string> cells;
      for (std::size_t used = 0; used + held + 100 < kLarge; used += held + 20) {
        std::string on_page = record.begin;
        on_page.resize(held, 'c');
        cells.push_back(varint(record.size) + varint(1 + i * 100 + cells.size()) + on_page +
                        big_endian(2 + kLeaves, 4));
      }
      content += tree_page(kLarge, 13, cells, is_loop ? 20000 : 0);
    }
    for (std::uint32_t i = 0; i < kChain; ++i) {
      const std::uint32_t next = is_loop ? 2 + kLeaves : 3 + kLeaves + i;
      content += big_endian(is_loop || i + 1 < kChain ? next : 0, 4) + std::string(kLarge - 4, 'c');
    }
    write_file(file(), content);
    const Json rows = salvage()["tables"]["t_message"];
    EXPECT_EQ(rows["recovered"].get<int>() + rows["taken"].get<int>() > 0, !is_loop);
    EXPECT_LT(made, 20 * content.size());
  }
}

}  // namespace
}  // namespace corvan_test
