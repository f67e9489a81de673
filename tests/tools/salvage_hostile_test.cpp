// Files that were made to keep salvage busy: whatever they claim, memory, time and output are
// bounded by the bytes that are there.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/store_pages.h"
#include "tools/salvage/bad_pages.h"
#include "tools/salvage/id_ranges.h"
#include "tools/salvage/page_set.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;
using corvan_tool::BadPageList;
using corvan_tool::BadPages;
using corvan_tool::IdRange;
using corvan_tool::IdRanges;
using corvan_tool::PageRange;
using corvan_tool::PageSet;

constexpr std::uint32_t kMaxPage = std::numeric_limits<std::uint32_t>::max();

// A number in so many bytes, the highest first.
std::string big_endian(std::uint64_t number, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i-- > 0; number >>= 8U) bytes[i] = static_cast<char>(number & 0xffU);
  return bytes;
}

// A number of SQLite's variable length.
std::string varint(std::uint64_t number) {
  std::string bytes(1, static_cast<char>(number & 0x7fU));
  while ((number >>= 7U) != 0) {
    bytes.insert(bytes.begin(), static_cast<char>((number & 0x7fU) | 0x80U));
  }
  return bytes;
}

// A page of a tree with these cells at its end, and `pointers` places of the last of them in
// addition.
std::string tree_page(std::size_t size, char type, const std::vector<std::string>& cells,
                      std::size_t pointers = 0) {
  const std::size_t header = type == 5 ? 12 : 8;
  std::string page(size, '\0');
  std::size_t at = size;
  std::string places;
  for (const std::string& cell : cells) {
    at -= cell.size();
    page.replace(at, cell.size(), cell);
    places += big_endian(at, 2);
  }
  for (std::size_t i = 0; i < pointers; ++i) places += big_endian(at, 2);
  page[0] = type;
  page.replace(3, 2, big_endian(places.size() / 2, 2));
  page.replace(5, 2, big_endian(at % 65536, 2));
  return page.replace(header, places.size(), places);
}

// The beginning and the length of the record of a message whose content has so many bytes.
struct MessageRecord {
  std::string begin;
  std::uint64_t size = 0;
};
MessageRecord message_record(std::uint64_t content) {
  const auto text = [](std::uint64_t size) { return varint(13 + 2 * size); };
  // id, session_id, session_type, object_name, content, sender, seven numbers and texts
  const std::string types = varint(0) + text(4) + varint(1) + text(9) + text(content) + text(3) +
                            varint(1) + varint(8) + varint(8) + varint(8) + varint(8) + varint(8) +
                            text(0);
  MessageRecord record;
  record.begin = varint(types.size() + 1) + types + "room" + "\2" + "CV:TxtMsg";
  record.size = record.begin.size() + content + 3 + 1;
  return record;
}

// A row of t_message whose record lies on its page.
std::string message_cell(std::int64_t id, char letter, std::size_t content) {
  const MessageRecord record = message_record(content);
  return varint(record.size) + varint(static_cast<std::uint64_t>(id)) + record.begin +
         std::string(content, letter) + "u01" + "\1";
}

struct LogFrame {
  std::uint32_t page;
  std::uint32_t committed;
  std::string content;
};

// A log whose checksums are right.
class LogText {
 public:
  explicit LogText(std::size_t page_size) : page_size_(page_size) {
    const std::string header = big_endian(0x377f0682, 4) + big_endian(3007000, 4) +
                               big_endian(page_size, 4) + big_endian(0, 4) + kSalt;
    sum(header);
    text_ = header + sums();
  }

  void add(const LogFrame& frame) {
    std::string content = frame.content;
    content.resize(page_size_, '\0');
    const std::string numbers = big_endian(frame.page, 4) + big_endian(frame.committed, 4);
    sum(numbers + content);
    text_ += numbers + kSalt + sums() + content;
  }

  const std::string& text() const { return text_; }

 private:
  static constexpr const char* kSalt = "saltSALT";

  std::string sums() const { return big_endian(first_, 4) + big_endian(second_, 4); }

  void sum(const std::string& bytes) {
    const auto word = [&bytes](std::size_t at) {
      std::uint32_t number = 0;
      for (std::size_t i = 4; i-- > 0;) {
        number = number << 8U | static_cast<unsigned char>(bytes[at + i]);
      }
      return number;
    };
    for (std::size_t at = 0; at < bytes.size(); at += 8) {
      first_ += word(at) + second_;
      second_ += word(at + 4) + first_;
    }
  }

  const std::size_t page_size_;
  std::string text_;
  std::uint32_t first_ = 0;
  std::uint32_t second_ = 0;
};

class SalvageHostileTest : public ToolTest {
 protected:
  SalvageHostileTest() : salvaged(folder.file("salvaged")) {
    import(line({{"content", "mine"}, { "server_uid", "s1" }}));
    sound = read_file(file());
    most_seconds = 60;
    most_memory = rlim_t{256} << 20;
  }

  // Salvages within the bounds: the report, after which the new store, if there is one, is gone.
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

  // The first page, of a file of pages of 64 KiB that has a table t_message with this root.
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
  std::uintmax_t made = 0;  // the size of the new store
};

TEST_F(SalvageHostileTest, ALogMayClaimAnyPage) {
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

TEST_F(SalvageHostileTest, ALogThatClaimsAPageHidesNoOtherPage) {
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

TEST_F(SalvageHostileTest, AFileOfHolesIsRead) {
  // Of any stated size, with the rows at its beginning.
  const std::uintmax_t size = std::uintmax_t{1} << 42;
  std::error_code error;
  fs::resize_file(file(), size, error);
  if (error) GTEST_SKIP() << "the file system has no files of this size";
  const Json report = salvage();
  EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1);
  EXPECT_EQ(report["pages"], size / kPageSize);
  EXPECT_GE(report["zero_pages"], (size - sound.size()) / kPageSize - 1);
}

TEST_F(SalvageHostileTest, ALogOfHolesIsRead) {
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

TEST_F(SalvageHostileTest, CommitsOfADamagedLogAreFoundBehindAHole) {
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

TEST_F(SalvageHostileTest, ManyPointersFromPageToPageTakeNoMoreMemory) {
  // A chain of inner pages, each of which leads to the next one from end to end.
  most_memory = rlim_t{128} << 20;
  constexpr std::uint32_t kPages = 160;
  std::string content = first_page(2, 0);
  for (std::uint32_t i = 0; i < kPages; ++i) {
    content += tree_page(kLarge, 5, {big_endian(3 + i, 4) + varint(1)}, (kLarge - 100) / 2);
  }
  write_file(file(), content);
  salvage();
}

TEST_F(SalvageHostileTest, ManyPointersToAPageReadItAFewTimes) {
  // A tree of 20 inner pages, of which every child is one page of another table's rows.
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

TEST_F(SalvageHostileTest, ManyPointersBeyondTheEndAreNotedInPart) {
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

TEST_F(SalvageHostileTest, OverlappingCellsGiveAFewPagesAtMost) {
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

TEST_F(SalvageHostileTest, ManyRowsThatContinueOnTheSamePagesAreReadAFewTimes) {
  // Rows of unreached leaves, all of which continue on one chain of 40 pages; and on one page that
  // leads to itself.
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

TEST(PageSetTest, HasPlacesForItsPagesAlone) {
  const PageSet pages({{7, 9}, {2, 3}, {9, 9}, {4, 4}, {kMaxPage, kMaxPage}});
  EXPECT_EQ(pages.count(), 7U);
  EXPECT_EQ(pages.place_of(1), std::nullopt);
  EXPECT_EQ(pages.place_of(2), 0U);
  EXPECT_EQ(pages.place_of(4), 2U);
  EXPECT_EQ(pages.place_of(5), std::nullopt);
  EXPECT_EQ(pages.place_of(9), 5U);
  EXPECT_EQ(pages.place_of(kMaxPage - 1), std::nullopt);
  EXPECT_EQ(pages.place_of(kMaxPage), 6U);
  std::vector<std::uint32_t> visited;
  pages.each([&visited](std::uint32_t page) { visited.push_back(page); });
  EXPECT_EQ(visited, (std::vector<std::uint32_t>{2, 3, 4, 7, 8, 9, kMaxPage}));
}

TEST(PageSetTest, TellsWhatIsBetween) {
  const PageSet pages({{2, 4}, {7, 9}, {kMaxPage, kMaxPage}});
  const auto gaps = [&pages](std::uint32_t first, std::uint32_t last) {
    std::string text;
    for (const PageRange& range : pages.gaps(first, last)) {
      text += std::to_string(range.first) + "-" + std::to_string(range.last) + " ";
    }
    return text;
  };
  EXPECT_EQ(gaps(1, 10), "1-1 5-6 10-10 ");
  EXPECT_EQ(gaps(3, 8), "5-6 ");
  EXPECT_EQ(gaps(10, kMaxPage), "10-4294967294 ");
  EXPECT_EQ(PageSet().gaps(1, 0).size(), 0U);
  EXPECT_EQ(PageSet().gaps(1, kMaxPage).size(), 1U);
}

TEST(BadPageListTest, TheFirstFaultOfAPageCounts) {
  BadPageList list;
  list.add(5, "a");
  list.add(3, "b");
  for (int i = 0; i < 10000; ++i) list.add(5, "c");
  list.add(4, "a");
  list.add(PageRange{kMaxPage - 1, kMaxPage}, "d");
  std::string text;
  for (const BadPages& pages : list.list()) {
    text += std::to_string(pages.first) + "-" + std::to_string(pages.last) + pages.what + " ";
  }
  EXPECT_EQ(text, "3-3b 4-5a 4294967294-4294967295d ");
}

TEST(IdRangesTest, JoinsWhatMeets) {
  IdRanges ids;
  EXPECT_TRUE(ids.empty());
  for (const IdRange& range :
       {IdRange{5, 7}, {1, 2}, {7, 8}, {3, 3}, {10, 9}, {20, 30}, {2, 3}, {25, 40}}) {
    ids.add(range);
  }
  EXPECT_EQ((std::vector<IdRange>(ids.begin(), ids.end())),
            (std::vector<IdRange>{{1, 3}, {5, 8}, {20, 40}}));
  EXPECT_FALSE(ids.has(1));
  EXPECT_TRUE(ids.has(2));
  EXPECT_TRUE(ids.has(3));
  EXPECT_FALSE(ids.has(4));
  EXPECT_TRUE(ids.has(40));
  EXPECT_FALSE(ids.has(41));
  ids.add({std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()});
  EXPECT_EQ(std::distance(ids.begin(), ids.end()), 1);
  EXPECT_TRUE(ids.has(-5));
}

}  // namespace
}  // namespace corvan_test
