#include "tools/salvage/file/page.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"
#include "tests/tools/store_pages.h"
#include "tools/salvage/file/record.h"
#include "tools/salvage/file_schema.h"
#include "tools/salvage/salvage.h"
#include "tools/store/library_store.h"

namespace corvan_test {
namespace {

using namespace corvan_tool;

TEST(SalvagePage, TakesVarints) {
  const std::vector<std::pair<std::string, std::uint64_t>> cases = {
      {{"\x00", 1}, 0},
      {"\x7f", 127},
      {{"\x81\x00", 2}, 128},
      {"\xff\x7f", 16383},
      {"\xff\xff\xff\xff\xff\xff\xff\xff\xff", UINT64_MAX}};
  for (const auto& [bytes, number] : cases) {
    std::size_t at = 0;
    EXPECT_EQ(take_varint(bytes, at), number);
    EXPECT_EQ(at, bytes.size());
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      at = 0;
      EXPECT_FALSE(take_varint(std::string_view(bytes).substr(0, size), at));
    }
  }
}

TEST(SalvagePage, ParsesRecords) {
  // NULL, -2, 1, 0.5, "ab", x'00'.
  const std::string record("\x07\x00\x01\x09\x07\x11\x0e\xfe\x3f\xe0\0\0\0\0\0\0ab\0", 19);
  std::vector<Value> values;
  ASSERT_TRUE(parse_record(record, record.size(), values));
  ASSERT_EQ(values.size(), 6U);
  EXPECT_EQ(values[0].kind, Value::kNull);
  EXPECT_EQ(values[1].integer, -2);
  EXPECT_EQ(values[2].integer, 1);
  EXPECT_EQ(values[3].kind, Value::kReal);
  EXPECT_EQ(values[4].kind, Value::kText);
  EXPECT_EQ(values[4].bytes, "ab");
  EXPECT_EQ(values[5].kind, Value::kBlob);
  EXPECT_FALSE(parse_record(record, record.size() - 1, values));
  EXPECT_FALSE(parse_record(record, record.size() + 1, values));
  EXPECT_FALSE(parse_record("", 0, values));
}

TEST(SalvagePage, FindsTheFewestKeysOutOfOrder) {
  const auto in_order = [](const std::vector<std::int64_t>& keys) {
    std::vector<Cell> cells(keys.size());
    for (std::size_t i = 0; i < keys.size(); ++i) cells[i].key = keys[i];
    return keys_in_order(cells);
  };
  using Flags = std::vector<bool>;
  EXPECT_EQ(in_order({}), Flags{});
  EXPECT_EQ(in_order({-1, 2, 3}), Flags(3, true));
  EXPECT_EQ(in_order({1, 900, 3, 4}), (Flags{true, false, true, true}));
  EXPECT_EQ(in_order({1, 2, 3, 0}), (Flags{true, true, true, false}));
  const Flags equal = in_order({5, 5});
  EXPECT_EQ(std::count(equal.begin(), equal.end(), false), 1);
}

TEST(SalvagePage, LeavesOutTruncatedCells) {
  // Two rows with one NULL each: id 1 at the page's end, id 2 before it.
  std::string bytes(kPageSize, '\0');
  bytes.replace(0, 12, std::string("\x0d\0\0\0\2\x0f\xf8\0\x0f\xfc\x0f\xf8", 12));
  bytes.replace(kPageSize - 8, 8, std::string("\2\2\2\0\2\1\2\0", 8));
  const auto whole = parse_page(bytes, kPageSize, false);
  ASSERT_TRUE(whole);
  EXPECT_TRUE(whole->sound);
  EXPECT_EQ(whole->cells.size(), 2U);
  const auto cut = parse_page(std::string_view(bytes).substr(0, kPageSize - 1), kPageSize, false);
  ASSERT_TRUE(cut);
  EXPECT_FALSE(cut->sound);
  ASSERT_EQ(cut->cells.size(), 1U);
  EXPECT_EQ(cut->cells[0].key, 2);
  EXPECT_FALSE(parse_page(std::string_view(bytes).substr(0, 11), kPageSize, false));
}

TEST(SalvagePage, ReadsTheColumnsOfAnUntrustedStatement) {
  EXPECT_EQ(columns_made_by("CREATE TABLE t(a integer primary key autoincrement,\"b c\" text)"),
            (std::vector<std::string>{"a", "b c"}));
  for (const char* sql : {"", "CREATE TABLE", "CREATE TABLE t AS SELECT 1", "VACUUM",
                          "CREATE TABLE sqlite_t(a)", "CREATE VIRTUAL TABLE t USING dbstat"}) {
    EXPECT_EQ(columns_made_by(sql), std::vector<std::string>{}) << sql;
  }
}

TEST(SalvagePage, SurvivesHostileBytes) {
  std::mt19937_64 random(1);
  std::vector<Value> values;
  for (int i = 0; i < 5000; ++i) {
    std::string bytes = random_bytes(random, kPageSize);
    bytes[0] = "\x02\x05\x0a\x0d"[random_below(random, 4)];
    bytes[3] = '\0';  // otherwise most pages have more cells than fit
    const std::size_t usable = kPageSize - random_below(random, 64);
    // Every second page is truncated.
    const std::size_t held = i % 2 == 0 ? kPageSize : random_below(random, kPageSize);
    const auto page = parse_page(std::string_view(bytes).substr(0, held), usable, false);
    if (!page) continue;
    for (const Cell& cell : page->cells) {
      ASSERT_LE(cell.at + cell.held, std::min(held, usable));
      parse_record(std::string_view(bytes).substr(cell.at, cell.held), cell.size, values);
    }
  }
}

// Damages a small store in many ways. Runs in this process, so that sanitizers check salvage.
class SalvageHostile : public testing::Test {
 protected:
  static std::string sound_file(const std::string& folder) {
    { const LibraryStore made(folder, "me"); }
    const std::string file = folder + "corvan";
    plant(file,
          "with recursive n(i) as (select 1 union all select i+1 from n where i<400) "
          "insert into t_message(session_id,session_type,content,server_uid) "
          "select 'room'||i%7,1+i%5,hex(zeroblob(i%90 * (1 + i%50/49*90))),'s'||i from n");
    plant(file,
          "insert into t_session(session_id,session_type) "
          "select distinct session_id,session_type from t_message");
    return read_file(file);
  }
};

void damage(std::string& content, std::mt19937_64& random) {
  const std::size_t pages = content.size() / kPageSize;
  switch (random_below(random, 5)) {
    case 0:  // bits
      for (int i = 0; i < 300; ++i)
        flip_bit(content, 1 + random_below(random, pages), random_below(random, 8 * kPageSize));
      break;
    case 1:  // copies of pages in place of others
      for (int i = 0; i < 8; ++i) {
        const std::size_t from = random_below(random, pages);
        overwrite(content, 1 + random_below(random, pages), 0,
                  content.substr(from * kPageSize, kPageSize));
      }
      break;
    case 2:  // headers of pages
      for (int i = 0; i < 40; ++i) {
        overwrite(content, 2 + random_below(random, pages - 1), 1 + random_below(random, 20),
                  random_bytes(random, 3));
      }
      break;
    case 3:  // the schema's page
      for (int i = 0; i < 60; ++i) flip_bit(content, 1, random_below(random, 8 * kPageSize));
      break;
    default:
      content.resize(1 + random_below(random, content.size()));
  }
}

TEST_F(SalvageHostile, MakesASoundStoreWhateverTheDamage) {
  const TemporaryFolder folder;
  const std::string sound = sound_file(folder.path());
  int kept = 0;
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string content = sound;
    damage(content, random);
    const std::string damaged = folder.file("damaged");
    write_file(damaged, content);
    if (seed % 4 == 0) write_file(damaged + "-wal", random_bytes(random, 9000));
    const std::string made = folder.file("made");
    std::filesystem::remove_all(made);
    const SalvageOptions options = {damaged, made, seed % 2 == 0, false, false};
    // run() throws if the new store is not sound.
    const SalvageReport report = Salvage(options).run();
    EXPECT_EQ(report.is_kept, report.recovered() > 0);
    if (report.is_kept) {
      ++kept;
      EXPECT_EQ(rows(made + "/corvan", "pragma integrity_check"), std::vector<std::string>{"ok"});
    }
    EXPECT_EQ(read_file(damaged), content);
  }
  EXPECT_GE(kept, 15);
}

}  // namespace
}  // namespace corvan_test
