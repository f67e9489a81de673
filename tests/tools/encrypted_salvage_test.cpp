// Salvage of encrypted stores: every page whose authentication holds is recovered.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

#include "tests/tools/encrypted_fixture.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

class EncryptedSalvageTest : public EncryptedTest {
 protected:
  using Ids = std::set<int64_t>;

  static constexpr int kOkOrNegative = -1;  // a damaged index page loses nothing

  void SetUp() override {
    EncryptedTest::SetUp();
    if (IsSkipped()) return;
    make_store();
    sound = read_file(file());
    all_rows = rows("select * from t_message");
  }

  Json salvage(int status, const Arguments& more = {}) {
    std::filesystem::remove_all(new_store());
    Arguments arguments = {"salvage", store(), new_store(), "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Listing before = listing(store());
    const Outcome outcome = run_with(key(), arguments);
    const int expected = status == kOkOrNegative && outcome.status <= 1 ? outcome.status : status;
    EXPECT_EQ(outcome.status, expected) << outcome.err << outcome.out;
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(listing(store()) == before);
    expect_no_plain_file("salvage");
    return outcome.out.empty() ? Json() : Json::parse(outcome.out);
  }

  Rows salvaged(const std::string& sql) const {
    return corvan_test::rows(new_store() + "/corvan", sql);
  }

  // Salvages the store without these pages. All rows of the others must be recovered as they were.
  void expect_best(const std::set<std::size_t>& bad, const StorePages& messages) {
    salvage(kOkOrNegative);
    EXPECT_EQ(salvaged("pragma integrity_check"), Rows{"ok"});
    Ids missed = rows_beside(messages, bad);
    for (const std::string& id : salvaged("select id from t_message")) missed.erase(std::stoll(id));
    EXPECT_EQ(missed, Ids{});
    const std::set<std::string> known(all_rows.begin(), all_rows.end());
    for (const std::string& row : salvaged("select * from t_message")) {
      EXPECT_EQ(known.count(row), 1U) << row;
    }
  }

  // The log of a connection that ran these statements on the store, which stays as it is.
  std::string log_of(const std::string& sql) {
    std::string log;
    {
      const WriteAhead writer(file(), sql);
      log = read_file(file() + "-wal");
    }
    std::filesystem::remove(file() + "-shm");
    std::filesystem::remove(file() + "-wal");
    write_file(file(), sound);
    return log;
  }

  std::string sound;
  Rows all_rows;
};

TEST_F(EncryptedSalvageTest, RecoversAllRowsOfASoundStore) {
  salvage(0);
  EXPECT_EQ(salvaged("select * from t_message"), all_rows);
  EXPECT_EQ(salvaged("select * from t_session"), rows("select * from t_session"));
}

TEST_F(EncryptedSalvageTest, RecoversTheRowsOfAllOtherPagesForEachDamagedPage) {
  const StorePages messages = store_pages(file(), "t_message");
  const std::size_t pages = sound.size() / kPageSize;
  ASSERT_GE(pages, 25U);
  for (std::size_t page = 1; page <= pages; ++page) {
    SCOPED_TRACE(page);
    std::string damaged = sound;
    flip_bit(damaged, page, 8 * 2000);
    write_file(file(), damaged);
    const bool has_rows = messages.rows.count(page) != 0;
    expect_best({page}, messages);
    EXPECT_EQ(salvaged("select count(*) from t_message") == Rows{"300"}, !has_rows);
  }
}

TEST_F(EncryptedSalvageTest, RecoversWhatIsLeftIfHalfOfThePagesAreDamaged) {
  const StorePages messages = store_pages(file(), "t_message");
  std::string damaged = sound;
  std::set<std::size_t> bad;
  for (std::size_t page = 1; page <= sound.size() / kPageSize; page += 2) {
    overwrite(damaged, page, 0, std::string(kPageSize, 'x'));
    bad.insert(page);
  }
  write_file(file(), damaged);
  expect_best(bad, messages);
}

TEST_F(EncryptedSalvageTest, RecoversACutOffFile) {
  const StorePages messages = store_pages(file(), "t_message");
  const std::size_t pages = sound.size() / kPageSize;
  std::set<std::size_t> bad;
  for (std::size_t page = pages / 2; page <= pages; ++page) bad.insert(page);
  write_file(file(), sound.substr(0, (pages / 2 - 1) * kPageSize + 100));
  expect_best(bad, messages);
}

TEST_F(EncryptedSalvageTest, ReadsTheLog) {
  const std::string log = log_of(
      "update t_message set content='planted again' where id%2=0;"
      "insert into t_sync values('planted',1,2)");
  write_file(file() + "-wal", log);
  const Json report = salvage(0);
  EXPECT_TRUE(report["log"]["fits"]);
  EXPECT_GT(report["log"]["used"], 0);
  EXPECT_EQ(salvaged("select count(*) from t_message where content='planted again'"), Rows{"150"});
  EXPECT_EQ(salvaged("select * from t_sync"), Rows{"planted|1|2"});
}

TEST_F(EncryptedSalvageTest, ReadsTheLogIfThePagesOfTheFileAreDamaged) {
  const std::string log = log_of("update t_message set content='planted again'");
  for (const bool is_there : {true, false}) {
    std::filesystem::remove(file());
    if (is_there) write_file(file(), std::string(sound.size(), 'x'));
    write_file(file() + "-wal", log);
    salvage(1);
    EXPECT_EQ(salvaged("select count(*) from t_message where content='planted again'"),
              Rows{"300"});
  }
}

TEST_F(EncryptedSalvageTest, ReadsPagesOfLostCommits) {
  std::string log = log_of(
      "update t_message set content='planted first';update t_message set content='planted second'");
  log[32 + 24 + 2000] ^= 1;  // in the page of the first frame
  write_file(file() + "-wal", log);
  const Json report = salvage(1);
  EXPECT_TRUE(report["log"]["damaged"]);
  EXPECT_GT(report["log"]["unusable"], 0);
  EXPECT_EQ(salvaged("select * from t_message"), all_rows);
}

TEST_F(EncryptedSalvageTest, RefusesAKeyThatDecryptsNoPage) {
  const Arguments arguments = {"salvage", store(), new_store()};
  expect_refused(arguments, other(), "no page can be decrypted");
  write_file(file(), std::string(sound.size(), 'x'));
  expect_refused(arguments, key(), "no page can be decrypted");
}

}  // namespace
}  // namespace corvan_test
