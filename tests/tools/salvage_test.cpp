// What can be recovered is worked out from the pages that SQLite says hold each row of the sound
// file, before it is damaged.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

using Ids = std::set<int64_t>;

const std::vector<std::string> kTables = {"t_message", "t_session", "t_sync", "t_version"};

class SalvageTest : public ToolTest {
 protected:
  SalvageTest() : salvaged(folder.file("salvaged")) {}

  // A store of 1,500 messages in 30 conversations, some of them longer than a page, imported once.
  void SetUp() override {
    static std::string content;
    if (content.empty()) {
      std::string lines;
      for (int i = 1; i <= 1500; ++i) {
        const std::string long_text(static_cast<std::size_t>(i % 100 == 0 ? 10000 : 20 + i % 60),
                                    static_cast<char>('a' + i % 26));
        lines += line({{"session_id", "room-" + std::to_string(i % 30)},
                       {"session_type", 1 + i % 5},
                       {"content", long_text + " 你好"},
                       {"sent_time", 1700000000000 + i},
                       {"server_uid", "s" + std::to_string(i)}});
      }
      import(lines);
      plant(
          "update t_session set is_top=1,silence=rowid%2,title='T'||rowid,draft='d'||rowid;"
          "insert into t_sync values('me',5,6),('u01',-7,8);"
          "delete from t_message where id between 700 and 704");
      content = read_file(file());
    }
    sound = content;
    std::filesystem::create_directories(store());
    write_file(file(), sound);
  }

  std::string new_file() const { return salvaged + "/corvan"; }
  Rows new_rows(const std::string& sql) const { return corvan_test::rows(new_file(), sql); }

  static Ids ids(const Rows& rows) {
    Ids result;
    for (const std::string& row : rows) result.insert(std::stoll(row));
    return result;
  }

  // Salvages what lies in the store's folder: the report. What is there must stay as it is, and
  // what comes of it must be sound.
  Json salvage(int status, const Arguments& more = {}) {
    std::filesystem::remove_all(salvaged);
    const Listing before = listing(store());
    Arguments arguments = {"salvage", store(), salvaged, "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, status) << outcome.err << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(listing(store()), before);
    const Json report = Json::parse(outcome.out);
    if (report["folder"].is_null()) {
      EXPECT_FALSE(file_exists(salvaged));
    } else {
      EXPECT_EQ(new_rows("pragma integrity_check"), Rows{"ok"});
    }
    return report;
  }

  // Every salvaged message is equal to the sound file's of that id.
  void expect_equal_messages() const {
    const std::string original = folder.file("original");
    write_file(original, sound);
    const std::string columns =
        "session_id,session_type,object_name,content,sender,direction,sent_status,read_status,"
        "is_mention,sent_time,client_uid,server_uid";
    const Rows all = corvan_test::rows(original, "select id," + columns + " from t_message");
    const std::set<std::string> known(all.begin(), all.end());
    for (const std::string& row : new_rows("select id," + columns + " from t_message")) {
      EXPECT_EQ(known.count(row), 1U) << row;
    }
  }

  // Salvages `damaged`, of which these pages were overwritten: every row beside them comes back,
  // and what is said to be lost agrees with what is.
  Json expect_best(const std::string& damaged, const std::set<std::size_t>& bad, int status = 1) {
    const StorePages messages = store_pages_of("t_message");
    write_file(file(), damaged);
    Json report = salvage(status);
    const Ids expected = rows_beside(messages, bad);
    Ids missed = expected;
    const Ids found = ids(new_rows("select id from t_message"));
    for (const int64_t id : found) missed.erase(id);
    EXPECT_EQ(missed, Ids{});
    expect_equal_messages();

    const Json& counts = report["tables"]["t_message"];
    EXPECT_EQ(counts["recovered"], found.size());
    const std::size_t lost = 1495 - found.size();
    EXPECT_LE(counts["lost_at_least"], lost);
    EXPECT_TRUE(counts["lost_at_most"].is_null() || counts["lost_at_most"] >= lost) << counts;
    return report;
  }

  StorePages store_pages_of(const std::string& table) const {
    const std::string original = folder.file("original");
    write_file(original, sound);
    return store_pages(original, table);
  }

  // The log of a file in write-ahead mode after some statements, which are in it alone; the file
  // itself stays as it is.
  static std::string log_of(const std::string& path, const std::string& sql) {
    const std::string content = read_file(path);
    std::string log;
    {
      const WriteAhead writer(path, sql);
      log = read_file(path + "-wal");
    }
    std::filesystem::remove(path + "-shm");
    write_file(path, content);
    return log;
  }

  std::string sound;
  std::string salvaged;
};

TEST_F(SalvageTest, SoundStoreComesBackRowForRow) {
  const Json report = salvage(0);
  for (const std::string& table : kTables) {
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

TEST_F(SalvageTest, FileOfAnyNameInAFolderThatCannotBeWritten) {
  const std::string place = folder.file("medium");
  std::filesystem::create_directory(place);
  std::filesystem::rename(file(), place + "/old.bak");
  ASSERT_EQ(chmod((place + "/old.bak").c_str(), 0444), 0);
  ASSERT_EQ(chmod(place.c_str(), 0555), 0);
  const Listing before = listing(place);
  unprivileged = true;
  const std::string made = store() + "/made";
  const std::string text = output({"salvage", place + "/old.bak", made});
  EXPECT_EQ(text.find("from " + std::filesystem::canonical(place).string() + "/old.bak\n"), 0U);
  EXPECT_NE(text.find("\nnext: corvan verify " + made + " --repair counters,latest,times\n"),
            std::string::npos);
  EXPECT_EQ(listing(place), before);
  EXPECT_EQ(corvan_test::rows(made + "/corvan", "select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, NewStoreIsUsedLikeAnyOther) {
  overwrite(sound, 1, 0, std::string(16, 'x'));
  write_file(file(), sound);
  salvage(0);
  EXPECT_EQ(json({"show", salvaged, "800", "--json"})["server_uid"], "s800");
  const Outcome imported =
      run({"import", salvaged, "--user", "me", "-"},
          line({{"content", "new"}, {"server_uid", "new"}}) + line({{"server_uid", "s800"}}));
  EXPECT_EQ(imported.status, 0) << imported.err;
  EXPECT_EQ(new_rows("select id from t_message where server_uid in('new','s800') order by id"),
            (Rows{"800", "1501"}));
}

TEST_F(SalvageTest, PagesOfNoise) {
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

TEST_F(SalvageTest, PagesOfZeros) {
  for (const unsigned seed : {1U, 2U}) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string damaged = sound;
    const std::set<std::size_t> bad = random_pages(random, damaged, 8);
    for (const std::size_t page : bad) overwrite(damaged, page, 0, std::string(kPageSize, '\0'));
    expect_best(damaged, bad);
  }
}

TEST_F(SalvageTest, CutFiles) {
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

TEST_F(SalvageTest, DamagedHeaders) {
  std::mt19937_64 random(1);
  for (const std::size_t count : {std::size_t{16}, std::size_t{100}, kPageSize}) {
    for (const std::string& bytes : {random_bytes(random, count), std::string(count, '\0')}) {
      SCOPED_TRACE(count);
      std::string damaged = sound;
      overwrite(damaged, 1, 0, bytes);
      // Only the deleted ids leave open whether something was lost when no tree is found.
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

TEST_F(SalvageTest, SizesInTheHeaderAreNotBelievedAgainstThePages) {
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

TEST_F(SalvageTest, RowsOfALastPageThatIsCutOffWithin) {
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

TEST_F(SalvageTest, DamagedIndexEntriesNameNoRows) {
  std::string damaged = sound;
  const StorePages pages = store_pages_of("t_message");
  const std::size_t bad = std::next(pages.rows.begin(), 3)->first;
  overwrite(damaged, bad, 0, std::string(kPageSize, '\0'));
  int turned = 0;
  for (const std::string& number : corvan_test::rows(
           folder.file("original"),
           "select pageno from dbstat where name='t_message_sent_time' and pagetype='leaf'")) {
    // The record of the page's first cell ends in the row id, in two bytes.
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

TEST_F(SalvageTest, WhatIsNoPartOfAStoreIsNamed) {
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

  // Pages that nothing leads to are still known by the columns that the schema has.
  std::string damaged = original;
  for (const std::size_t page : store_pages_of("t_message").inner) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  expect_best(damaged, {}, 0);
}

TEST_F(SalvageTest, BitsOfInnerPages) {
  const StorePages pages = store_pages_of("t_message");
  ASSERT_FALSE(pages.inner.empty());
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    std::string damaged = sound;
    const std::size_t page = pages.inner[random_below(random, pages.inner.size())];
    // The header and the cells' places, and the cells at the page's end, are what is in use.
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

TEST_F(SalvageTest, LogIsReadAndItsDamageIsTold) {
  const std::string original = folder.file("original");
  std::string log;
  {
    const WriteAhead writer(file(),
                            "insert into t_message(session_id,session_type,content,server_uid) "
                            "values('room-1',2,'in the log','log-1');"
                            "update t_message set content='changed' where id=5");
    sound = read_file(file());
    log = read_file(file() + "-wal");
  }
  std::filesystem::remove(file() + "-shm");
  write_file(file(), sound);
  write_file(file() + "-wal", log);
  Json report = salvage(0);
  EXPECT_EQ(new_rows("select content from t_message where id in(5,1501) order by id"),
            (Rows{"changed", "in the log"}));
  EXPECT_GT(report["tables"]["t_message"]["from_log"], 1);
  EXPECT_GT(report["log"]["used"], 0);
  EXPECT_EQ(report["log"]["damaged"], false);

  // The first commit's last byte is turned: both commits cannot be trusted.
  log[32 + 24 + 100] = static_cast<char>(~log[32 + 24 + 100]);
  write_file(file() + "-wal", log);
  report = salvage(1);
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  EXPECT_EQ(report["log"]["used"], 0);
  EXPECT_EQ(report["log"]["damaged"], true);
  EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], nullptr);
  EXPECT_GT(report["tables"]["t_message"]["doubtful_by"]["log"], 0);
  EXPECT_EQ(new_rows("select * from sqlite_sequence"), Rows{"t_message|1501"});
  report = salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select content from t_message where id=1501"), Rows{"in the log"});

  std::filesystem::remove(file() + "-wal");
  salvage(0);
  EXPECT_EQ(new_rows("select count(*),max(id) from t_message"), Rows{"1495|1500"});
}

TEST_F(SalvageTest, IdsOfLostCommitsAreNotGivenAgain) {
  std::string log = log_of(file(),
                           "update t_message set content='first' where id=5;"
                           "update sqlite_sequence set seq=2000 where name='t_message'");
  log[32 + 24 + 100] = static_cast<char>(~log[32 + 24 + 100]);
  write_file(file() + "-wal", log);
  EXPECT_EQ(salvage(1)["largest_id"], 2000);
  std::filesystem::remove(file() + "-wal");

  // Nor those that indexes name where the largest one is wrong.
  plant("update sqlite_sequence set seq=5");
  sound = read_file(file());
  const StorePages pages = store_pages_of("t_message");
  for (const auto& [page, on_page] : pages.rows) {
    const bool has_last = std::find(on_page.begin(), on_page.end(), 1499) != on_page.end() ||
                          std::find(on_page.begin(), on_page.end(), 1500) != on_page.end();
    if (has_last) overwrite(sound, page, 0, std::string(kPageSize, 'x'));
  }
  write_file(file(), sound);
  EXPECT_EQ(salvage(1)["largest_id"], 1500);
}

TEST_F(SalvageTest, LogHasThePageSize) {
  const std::string log = log_of(file(), "update t_message set content='in the log' where id=5");
  overwrite(sound, 1, 16, std::string("\x20\0", 2));
  write_file(file(), sound);
  write_file(file() + "-wal", log);
  const Json report = salvage(0);
  EXPECT_EQ(report["page_size"], kPageSize);
  EXPECT_EQ(new_rows("select content from t_message where id=5"), Rows{"in the log"});
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, LogThatIsCutOffLeavesLossesOpen) {
  const std::string log = log_of(file(),
                                 "update t_message set content='first' where id=5;"
                                 "update t_message set content=content||'x'");
  for (const std::size_t size : {std::size_t{31}, log.size() - 1}) {
    SCOPED_TRACE(size);
    write_file(file() + "-wal", log.substr(0, size));
    const Json report = salvage(1);
    EXPECT_EQ(report["log"]["cut"], true);
    EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], nullptr);
    EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  }
  std::filesystem::remove_all(salvaged);
  const std::string text = run({"salvage", store(), salvaged}).out;
  EXPECT_NE(text.find(" pages of the log were used; the rest belong to no complete commit\n"),
            std::string::npos);
  EXPECT_NE(text.find("\nthe log is cut off: "), std::string::npos) << text;

  // Whole pages alone do not tell that something is missing.
  write_file(file() + "-wal", log.substr(0, log.size() - kPageSize - 24));
  const Json report = salvage(0);
  EXPECT_EQ(report["log"]["cut"], false);
  EXPECT_LT(report["log"]["used"], report["log"]["pages"]);
  write_file(file() + "-wal", "");
  EXPECT_EQ(salvage(0)["log"]["cut"], false);
}

TEST_F(SalvageTest, LogOfAnotherStoreIsNoticed) {
  const Rows own = rows("select * from t_message");
  const std::string other = folder.file("other");
  const std::string many =
      "insert into t_message(session_id,content) with recursive n(i) as (select 1 union all "
      "select i+1 from n where i<400) select 'room','another store' from n";
  // A smaller store; one of the same size with other ids.
  for (const char* sql :
       {"delete from t_message; vacuum", "update t_message set id=id+5000; vacuum"}) {
    SCOPED_TRACE(sql);
    write_file(other, sound);
    corvan_test::plant(other, sql);
    const std::string log = log_of(other, many);
    write_file(file(), sound);
    write_file(file() + "-wal", log);
    EXPECT_EQ(salvage(1)["log"]["fits"], false);
    std::filesystem::remove_all(salvaged);
    EXPECT_NE(run({"salvage", store(), salvaged}).out.find("also try --without-log"),
              std::string::npos);
    const Json report = salvage(0, {"--without-log"});
    EXPECT_EQ(report["log"]["read"], false);
    EXPECT_EQ(new_rows("select * from t_message"), own);
  }
}

TEST_F(SalvageTest, LogThatMakesTheFileSmallerFits) {
  plant("delete from t_message where id>300");
  sound = read_file(file());
  write_file(file() + "-wal", log_of(file(), "vacuum"));
  write_file(file(), sound);
  const Json report = salvage(0);
  EXPECT_EQ(report["log"]["fits"], true);
  EXPECT_LT(report["pages"], sound.size() / kPageSize);
}

TEST_F(SalvageTest, LogWithoutItsFile) {
  const std::string log = log_of(file(), "vacuum");
  std::filesystem::remove(file());
  write_file(file() + "-wal", log);
  const Json report = salvage(0);
  EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1495);
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  expect_equal_messages();
  EXPECT_EQ(run({"salvage", store(), salvaged + "2", "--without-log"}).status, 2);

  const Outcome outcome = run({"salvage", file() + "-wal", salvaged + "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + std::filesystem::canonical(file() + "-wal").string() +
                             ": this is a write-ahead log; name the file next to it instead, "
                             "without -wal, even if that file is gone\n");
}

TEST_F(SalvageTest, NextStepCanBeTyped) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  const std::map<std::string, std::string> cases = {
      {"sp ace", "'sp ace'"}, {"it's", "'it'\\''s'"}, {"-dash", "./-dash"}};
  for (const auto& [name, typed] : cases) {
    const std::string text = output({"salvage", store(), "--", name});
    EXPECT_NE(text.find("\nnext: corvan verify " + typed + " --repair "), std::string::npos)
        << text;
  }
  std::filesystem::current_path(before);
}

TEST_F(SalvageTest, DeletedMessagesStayDeleted) {
  plant("pragma secure_delete=off; delete from t_message where id between 100 and 800");
  const Json report = salvage(1);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
  const Json& counts = report["tables"]["t_message"];
  EXPECT_EQ(counts["lost_at_most"], 0);
  EXPECT_GT(counts["doubtful_by"]["deleted"], 0);
  const Json taken = salvage(1, {"--doubtful"});
  EXPECT_EQ(taken["tables"]["t_message"]["taken"], counts["doubtful"]);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"),
            Rows{counts["doubtful"].dump()});

  // The list of free pages is gone as well: what the tables' sound trees lack was deleted.
  sound = read_file(file());
  overwrite(sound, 1, 32, std::string(8, '\0'));
  write_file(file(), sound);
  const Json unlisted = salvage(1);
  EXPECT_EQ(unlisted["tables"]["t_message"]["doubtful_by"]["unreached"], counts["doubtful"]);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
}

TEST_F(SalvageTest, MessagesDeletedByTheStoreAreNotFoundAgain) {
  const Outcome none = run({"import", store(), "--user", "me", "-"}, "");
  ASSERT_EQ(none.status, 0);
  plant("pragma secure_delete=on; delete from t_message where id between 100 and 800");
  sound = read_file(file());
  overwrite(sound, 1, 0, std::string(kPageSize, 'x'));
  write_file(file(), sound);
  salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
}

TEST_F(SalvageTest, DoubtfulValuesAreLeftOutUnlessAskedFor) {
  plant(
      "update t_message set content=cast(x'61ff62' as text) where id=10;"
      "update t_message set content=cast(x'610062' as text) where id=11;"
      "update t_message set direction=7 where id=12;"
      "update t_message set sent_time='soon' where id=13;"
      "update t_message set sender=null where id=14;"
      "update t_session set is_top=2 where rowid=1");
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_message"]["doubtful_by"], Json({{"text", 2}, {"value", 2}}));
  EXPECT_EQ(report["tables"]["t_session"]["doubtful_by"], Json({{"value", 1}}));
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 10 and 13"), Rows{"0"});
  EXPECT_EQ(new_rows("select sender from t_message where id=14"), Rows{"NULL"});
  EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], 0);

  const Json taken = salvage(1, {"--doubtful"});
  EXPECT_EQ(taken["tables"]["t_message"]["taken"], 4);
  for (const char* sql : {"select id,hex(content),direction,sent_time,sender from t_message",
                          "select rowid,* from t_session"}) {
    EXPECT_EQ(new_rows(sql), rows(sql));
  }
}

TEST_F(SalvageTest, OfTwoVersionsNeitherIsTaken) {
  // With page 1 gone no tree says which of two pages is the newer one.
  const StorePages pages = store_pages_of("t_message");
  const auto& [page, on_page] = *pages.rows.begin();
  std::string changed = sound.substr((page - 1) * kPageSize, kPageSize);
  const std::size_t place = changed.find("CV:TxtMsg");
  ASSERT_NE(place, std::string::npos);
  changed[place] = 'X';
  std::string damaged = sound + changed;
  overwrite(damaged, 1, 0, std::string(kPageSize, '\0'));
  write_file(file(), damaged);
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_message"]["doubtful_by"], Json({{"versions", 1}}));
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1494"});
  salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, LostConversationsAreMade) {
  const std::string original = folder.file("original");
  const StorePages pages = store_pages_of("t_session");
  std::string damaged = sound;
  for (const auto& [page, on_page] : pages.rows) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  write_file(file(), damaged);
  const Json report = salvage(1);
  const Json& counts = report["tables"]["t_session"];
  EXPECT_EQ(counts["recovered"], 0);
  EXPECT_EQ(counts["lost_at_least"], 30);
  EXPECT_EQ(counts["lost_at_most"], 30);
  EXPECT_EQ(counts["made"], 30);
  // All that indexes hold is as it was; the rest is as in a new row.
  EXPECT_EQ(new_rows("select rowid,*from t_session"),
            corvan_test::rows(original,
                              "select rowid,session_id,session_type,'','',is_top,session_time,"
                              "unread_count,mention_count,silence,latest_id,0,0 from t_session"));

  // Without the indexes what messages tell is left.
  for (const char* index :
       {"t_session_latest_id", "t_session_list", "sqlite_autoindex_t_session_1"}) {
    for (const std::string& page : corvan_test::rows(
             original, "select pageno from dbstat where name='" + std::string(index) + "'")) {
      overwrite(damaged, std::stoul(page), 0, std::string(kPageSize, 'x'));
    }
  }
  write_file(file(), damaged);
  EXPECT_EQ(salvage(1)["tables"]["t_session"]["made"], 30);
  EXPECT_EQ(new_rows("select session_id,session_type,session_time,latest_id,unread_count "
                     "from t_session order by 1,2"),
            corvan_test::rows(original,
                              "select session_id,session_type,max(sent_time),id,0 from t_message "
                              "group by 1,2 order by 1,2"));
  EXPECT_EQ(json({"list", salvaged, "--json"}).size(), 30U);
}

TEST_F(SalvageTest, LostConversationsAreCountedOnce) {
  std::string damaged = sound;
  const StorePages pages = store_pages_of("t_session");
  for (const auto& [page, on_page] : pages.rows) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  for (const std::string& page :
       corvan_test::rows(folder.file("original"),
                         "select pageno from dbstat where name in('t_session_list',"
                         "'sqlite_autoindex_t_session_1')")) {
    overwrite(damaged, std::stoul(page), 0, std::string(kPageSize, 'x'));
  }
  // What is left names row ids alone, and may not be all of it.
  for (const std::string& page : corvan_test::rows(
           folder.file("original"), "select pageno from dbstat where name='t_session_latest_id'")) {
    overwrite(damaged, std::stoul(page), 7, "\x3f");
  }
  write_file(file(), damaged);
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_session"]["lost_at_least"], 30);
  EXPECT_EQ(report["tables"]["t_session"]["made"], 30);
}

TEST_F(SalvageTest, NextStepLeavesNothingToRepair) {
  const StorePages pages = store_pages_of("t_session");
  std::string damaged = sound;
  for (const auto& [page, on_page] : pages.rows) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  // The newest messages are lost: their conversations still have their times.
  for (const auto& [page, on_page] : store_pages_of("t_message").rows) {
    if (on_page.back() > 1490) overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
  }
  write_file(file(), damaged);
  const std::string text = run({"salvage", store(), salvaged}).out;
  const std::string words = text.substr(text.rfind(' ') + 1);
  const Outcome first =
      run({"verify", salvaged, "--repair", words.substr(0, words.size() - 1), "--json"});
  EXPECT_NE(Json::parse(first.out)["changes"], Json::array());
  const Outcome second = run({"verify", salvaged, "--repair", "counters,latest,times", "--json"});
  EXPECT_EQ(Json::parse(second.out)["changes"], Json::array());
}

TEST_F(SalvageTest, RemovedConversationsAreNotMade) {
  plant("delete from t_session where rowid in(3,4)");
  overwrite(sound = read_file(file()), store_pages_of("t_message").rows.begin()->first, 0,
            std::string(kPageSize, 'x'));
  write_file(file(), sound);
  EXPECT_EQ(salvage(1)["tables"]["t_session"]["made"], 0);
  EXPECT_EQ(new_rows("select rowid from t_session where rowid in(3,4)"), Rows{});
}

TEST_F(SalvageTest, WhatIsNoStoreGivesNothing) {
  std::mt19937_64 random(1);
  const std::string foreign = folder.file("foreign");
  write_file(foreign, "");
  corvan_test::plant(foreign, "create table other(a);insert into other values(1)");
  for (const std::string& content :
       {std::string(), std::string("text\n"), std::string(100000, '\0'), std::string("\r"),
        random_bytes(random, 50000), read_file(foreign)}) {
    write_file(file(), content);
    const Outcome outcome = run({"salvage", store(), salvaged});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "");
    EXPECT_NE(outcome.out.find("nothing could be recovered; " + salvaged + " was not made\n"),
              std::string::npos);
    EXPECT_NE(outcome.out.find("next: salvage another copy of the file, or go back to a backup\n"),
              std::string::npos);
    EXPECT_FALSE(file_exists(salvaged));
    const Json report = salvage(1);
    EXPECT_EQ(report["folder"], nullptr);
    for (const std::string& table : kTables) EXPECT_EQ(report["tables"][table]["made"], 0) << table;
  }
}

TEST_F(SalvageTest, Failures) {
  const std::string empty = folder.file("empty");
  std::filesystem::create_directory(empty);
  const std::string taken = write("taken", "mine");
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string no_file = ": No such file or directory; name the store's folder or file\n";
  const std::map<Arguments, std::string> cases = {
      {{empty, salvaged}, empty + "/corvan" + no_file},
      {{empty + "/none", salvaged}, empty + "/none" + no_file},
      {{pipe, salvaged}, std::filesystem::canonical(pipe).string() + ": not a file\n"},
      {{store(), taken}, taken + ": is there already; name a place where nothing is\n"},
      {{store(), empty}, empty + ": is there already; name a place where nothing is\n"},
      {{store(), folder.file("no/where")}, folder.file("no") + ": no such folder; make it first\n"},
  };
  const Listing before = listing(folder.path());
  for (const auto& [arguments, error] : cases) {
    const Outcome outcome = run({"salvage", arguments[0], arguments[1]});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + error);
    EXPECT_EQ(outcome.out, "");
  }
  largest_file = 100000;
  const Outcome full = run({"salvage", store(), salvaged});
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(full.err.find("corvan: " + salvaged), 0U) << full.err;
  Listing after = listing(folder.path());
  EXPECT_EQ(after, before);
}

TEST_F(SalvageTest, InterruptLeavesNothing) {
  std::string many;  // takes long to read
  for (int i = 0; i < 60; ++i) many += sound;
  write_file(file(), many);
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
    const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t pid = start({"salvage", store(), salvaged}, out);
    bool begun = false;
    for (int i = 0; i < 5000 && !begun; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        begun = begun || entry.path().string().rfind(salvaged + ".unfinished", 0) == 0;
      }
    }
    EXPECT_TRUE(begun);
    kill(pid, signal_number);
    EXPECT_EQ(wait(pid), -signal_number);
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      EXPECT_EQ(entry.path().string().find("salvaged"), std::string::npos) << entry.path();
    }
  }
}

}  // namespace
}  // namespace corvan_test
