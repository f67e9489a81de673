// What salvage recovers from a file with damaged pages. Before the damage, SQLite tells which page
// holds each row. So each test knows which rows can be recovered.

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/salvage_fixture.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

TEST_F(SalvageTest, RecoversEveryRowOfASoundStore) {
  const Json report = salvage(0);
  for (const std::string& table : kStoreTables) {
    const std::string sql = "select rowid,* from " + table;
    EXPECT_EQ(new_rows(sql), rows(sql)) << table;
    const Json& counts = report["tables"][table];
    EXPECT_EQ(counts["recovered"], rows(sql).size());
    for (const char* none :
         {"lost_at_least", "lost_at_most", "doubtful", "taken", "made", "from_log"}) {
      EXPECT_EQ(counts[none], 0) << table << ' ' << none;
    }
  }
  for (const char* sql : {"select * from sqlite_sequence", "pragma user_version",
                          "pragma page_size", "pragma journal_mode",
                          "select type,name,tbl_name,sql from sqlite_master order by type,name"}) {
    EXPECT_EQ(new_rows(sql), rows(sql)) << sql;
  }
  EXPECT_EQ(report["largest_id"], 1500);
  EXPECT_EQ(report["bad_pages"], Json::array());
  EXPECT_EQ(report["left_out"], Json::array());
  EXPECT_EQ(report["header_ok"], true);
  EXPECT_EQ(report["pages"], sound.size() / kPageSize);
  EXPECT_EQ(report["declared_pages"], sound.size() / kPageSize);
  EXPECT_EQ(listing(salvaged).size(), 1U) << "more than the file was left";
}

TEST_F(SalvageTest, RecoversRowsBesidePagesOfNoise) {
  for (const unsigned seed : {1U, 2U, 3U}) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string damaged = sound;
    const std::set<std::size_t> bad = random_pages(random, damaged, 8);
    for (const std::size_t page : bad) {
      overwrite(damaged, page, 0, random_bytes(random, kPageSize));
    }
    expect_best(damaged, bad);
  }
}

TEST_F(SalvageTest, RecoversRowsBesidePagesOfZeros) {
  for (const unsigned seed : {1U, 2U}) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string damaged = sound;
    const std::set<std::size_t> bad = random_pages(random, damaged, 8);
    for (const std::size_t page : bad) overwrite(damaged, page, 0, std::string(kPageSize, '\0'));
    expect_best(damaged, bad);
  }
}

TEST_F(SalvageTest, RecoversRowsOfTruncatedFiles) {
  for (const std::size_t percent : {90U, 50U, 10U}) {
    SCOPED_TRACE(percent);
    const std::size_t size = sound.size() * percent / 100;
    std::set<std::size_t> bad;
    for (std::size_t page = size / kPageSize + 1; page <= sound.size() / kPageSize; ++page) {
      bad.insert(page);
    }
    const Json report = expect_best(sound.substr(0, size), bad);
    EXPECT_GT(report["declared_pages"], report["pages"]);
  }
}

TEST_F(SalvageTest, RecoversRowsBehindDamagedHeaders) {
  std::mt19937_64 random(1);
  for (const std::size_t count : {std::size_t{16}, std::size_t{100}, kPageSize}) {
    for (const std::string& bytes : {random_bytes(random, count), std::string(count, '\0')}) {
      SCOPED_TRACE(count);
      std::string damaged = sound;
      overwrite(damaged, 1, 0, bytes);
      // Without a tree, the ids of deleted messages may belong to lost ones.
      const Json report = expect_best(damaged, {1}, count == kPageSize ? 1 : 0);
      EXPECT_EQ(report["header_ok"], false);
      for (const char* table : {"t_session", "t_sync"}) {
        const std::string sql = std::string("select rowid,* from ") + table;
        EXPECT_EQ(new_rows(sql), corvan_test::rows(folder.file("original"), sql));
      }
      EXPECT_EQ(new_rows("select * from t_version"), Rows{"1"});
      EXPECT_EQ(new_rows("select * from sqlite_sequence"), Rows{"t_message|1500"});
    }
  }
}

TEST_F(SalvageTest, IgnoresHeaderSizesThatThePagesContradict) {
  const std::vector<std::pair<std::size_t, std::string>> cases = {
      {16, {"\0\1", 2}}, {16, "\x20"}, {20, "\x20"}};
  for (const auto& [at, bytes] : cases) {
    SCOPED_TRACE(at);
    std::string damaged = sound;
    overwrite(damaged, 1, at, bytes);
    const Json report = expect_best(damaged, {}, 0);
    EXPECT_EQ(report["header_ok"], false);
    EXPECT_EQ(report["page_size"], kPageSize);
    EXPECT_EQ(report["bad_pages"], Json::array());
    EXPECT_EQ(new_rows("select * from t_version"), Rows{"1"});
  }
}

TEST_F(SalvageTest, LosesOneRowOfATruncatedPage) {
  const StorePages pages = store_pages_of("t_message");
  const auto last = std::find_if(pages.rows.rbegin(), pages.rows.rend(),
                                 [](const auto& other) { return other.second.size() > 2; });
  ASSERT_NE(last, pages.rows.rend());
  const std::size_t page = last->first;
  write_file(file(), sound.substr(0, page * kPageSize - 1));
  salvage(1);
  std::set<std::size_t> cut_off;
  for (std::size_t i = page + 1; i <= sound.size() / kPageSize; ++i) cut_off.insert(i);
  const Ids expected = rows_beside(pages, cut_off);
  const Ids found = ids(new_rows("select id from t_message"));
  std::size_t missed = 0;
  for (const int64_t id : expected) {
    if (found.count(id) == 0) ++missed;
  }
  EXPECT_LE(missed, 1U) << "more than the row with the last byte";
  EXPECT_NE(missed, 0U);
  expect_equal_messages();
}

TEST_F(SalvageTest, IgnoresDamagedIndexEntries) {
  std::string damaged = sound;
  const StorePages pages = store_pages_of("t_message");
  const std::size_t bad = std::next(pages.rows.begin(), 3)->first;
  overwrite(damaged, bad, 0, std::string(kPageSize, '\0'));
  int turned = 0;
  for (const std::string& number : corvan_test::rows(
           folder.file("original"),
           "select pageno from dbstat where name='t_message_sent_time' and pagetype='leaf'")) {
    // The record of the page's first cell ends with the row id, in two bytes.
    const std::size_t begin = (std::stoul(number) - 1) * kPageSize;
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(damaged[at]); };
    const std::size_t cell = begin + byte(begin + 8) * std::size_t{256} + byte(begin + 9);
    const std::size_t end = cell + 1 + byte(cell);
    damaged[end - 2] = static_cast<char>(byte(end - 2) ^ 0x40U);
    ++turned;
  }
  ASSERT_GT(turned, 2);
  const Json report = expect_best(damaged, {bad});
  EXPECT_EQ(report["largest_id"], 1500);
}

TEST_F(SalvageTest, NamesForeignTablesAndColumns) {
  plant(
      "alter table t_message add column more text; create table other(a);"
      "create index other_a on other(a); create view seen as select 1;"
      "update t_message set more='x' where id>800");
  const std::string original = sound = read_file(file());
  const Json report = salvage(0);
  EXPECT_EQ(report["left_out"],
            Json({"table other", "index other_a", "view seen", "column t_message.more"}));
  EXPECT_EQ(report["bad_pages"], Json::array());
  EXPECT_EQ(new_rows("select id,content from t_message"), rows("select id,content from t_message"));
  std::filesystem::remove_all(salvaged);
  EXPECT_NE(output({"salvage", store(), salvaged})
                .find("\nleft out, not part of a message store: table other, "),
            std::string::npos);

  // Pages that nothing points to are still recognised, since the schema names the added column.
  std::string damaged = original;
  for (const std::size_t page : store_pages_of("t_message").inner) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  expect_best(damaged, {}, 0);
}

TEST_F(SalvageTest, RecoversEveryRowDespiteBitErrorsInInnerPages) {
  const StorePages pages = store_pages_of("t_message");
  ASSERT_FALSE(pages.inner.empty());
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string damaged = sound;
    const std::size_t page = pages.inner[random_below(random, pages.inner.size())];
    // An inner page is in use at its start (header and cell pointers) and at its end (cells).
    for (unsigned i = 0; i < 1 + seed % 3; ++i) {
      const std::size_t bit = random_below(random, 8 * 200);
      flip_bit(damaged, page, i % 2 == 0 ? bit : 8 * kPageSize - 1 - bit);
    }
    write_file(file(), damaged);
    std::filesystem::remove_all(salvaged);
    EXPECT_LE(run({"salvage", store(), salvaged}).status, 1);
    EXPECT_EQ(ids(new_rows("select id from t_message")), rows_beside(pages, {}));
    expect_equal_messages();
  }
}

}  // namespace
}  // namespace corvan_test
