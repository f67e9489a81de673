// The command search-index, and searches with the index that it makes.

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/search_index_sample.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

class SearchIndexTest : public SearchIndexSample {};

// The command.

TEST_F(SearchIndexTest, MakesAnIndexAndSaysWhatItDid) {
  import_numbers(1, 30);
  const std::string text = output({"search-index", store()});
  EXPECT_EQ(text.find(index_file() + ": 30 messages, 30 added, 0 mended, "), 0U) << text;
  const Json again = update();
  EXPECT_EQ(keys(again), (Rows{"messages", "added", "mended", "file_bytes", "seconds"}));
  EXPECT_EQ(again["messages"], 30);
  EXPECT_EQ(again["added"], 0);
  EXPECT_EQ(again["mended"], 0);
  EXPECT_EQ(again["file_bytes"], fs::file_size(index_file()));
}

TEST_F(SearchIndexTest, AddsAndMendsWhatHasChanged) {
  import_numbers(1, 30);
  update();
  import_numbers(31, 40);
  plant(
      "update t_message set content='changed' where id in(3,4);"
      "delete from t_message where id=5");
  const Json json = update();
  EXPECT_EQ(json["messages"], 39);
  EXPECT_EQ(json["added"], 10);
  EXPECT_EQ(json["mended"], 3);
  EXPECT_EQ(update()["mended"], 0);
}

TEST_F(SearchIndexTest, LeavesTheStoreAsItIs) {
  import_numbers(1, 30);
  plant("update t_message set sent_status=1,direction=0 where id=3");
  const std::string before = read_file(file());
  update();
  EXPECT_EQ(read_file(file()), before);
}

TEST_F(SearchIndexTest, IndexesWhatIsInTheLogOfAnOpenStore) {
  import_numbers(1, 30);
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=3");
  const std::string log = read_file(file() + "-wal");
  update();
  EXPECT_EQ(compare({"log"}), 1U);
  EXPECT_EQ(read_file(file() + "-wal"), log);
}

TEST_F(SearchIndexTest, GoesOnAfterAnInterrupt) {
  import_numbers(1, 3000);
  const pid_t process = start({"search-index", store()}, null_output());
  while (!file_exists(index_file())) usleep(200);
  interrupt_process(process, interrupts()[0]);
  const int status = wait(process);
  EXPECT_TRUE(status == 0 || status == interrupted_status(interrupts()[0])) << status;
  EXPECT_EQ(update()["messages"], 3000);
  EXPECT_EQ(compare({"number 2999"}), 1U);
}

TEST_F(SearchIndexTest, RemovesTheIndex) {
  import_numbers(1, 3);
  update();
  EXPECT_EQ(output({"search-index", store(), "--remove"}), index_file() + ": deleted\n");
  EXPECT_FALSE(file_exists(index_file()));
  EXPECT_EQ(output({"search-index", store(), "--remove"}), index_file() + ": there was none\n");
  update();
  EXPECT_EQ(json({"search-index", store(), "--remove", "--json"}), Json({{"removed", true}}));
  EXPECT_EQ(json({"search-index", store(), "--remove", "--json"}), Json({{"removed", false}}));
}

TEST_F(SearchIndexTest, RefusesAFolderThatCannotBeWritten) {
  import_numbers(1, 3);
  ASSERT_EQ(chmod(store().c_str(), 0555), 0);
  unprivileged = true;
  const Outcome outcome = run({"search-index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + index_file() + ": Permission denied; make its folder writable\n");
  make_read_only();
  EXPECT_EQ(run({"search-index", store()}).status, 2);
  EXPECT_EQ(run({"search", store(), "number"}).status, 0);
  make_writable();
}

TEST_F(SearchIndexTest, RefusesAnIndexThatIsNoFile) {
  import_numbers(1, 3);
  most_seconds = 20;
  make_fifo(index_file());
  const Outcome outcome = run({"search-index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + index_file() + ": not a file\n");
  EXPECT_EQ(compare({"number"},
                    "corvan: the search index is not used: " + index_file() + ": not a file\n"),
            3U);
}

TEST_F(SearchIndexTest, RefusesAnIndexThatIsAFolder) {
  import_numbers(1, 3);
  fs::create_directory(index_file());
  const Outcome outcome = run({"search-index", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + index_file() + ": not a file\n");
  EXPECT_EQ(compare({"number"},
                    "corvan: the search index is not used: " + index_file() + ": not a file\n"),
            3U);
}

// Searches.

TEST_F(SearchIndexTest, SearchSaysHowFarTheIndexIsBehind) {
  import_numbers(1, 30);
  EXPECT_EQ(compare({"number"}, ""), 20U);
  update();
  EXPECT_EQ(compare({"number"}, std::string(kUsed) + "\n"), 20U);
  import_numbers(31, 35);
  EXPECT_EQ(compare({"number"}, std::string(kUsed) + "; 5 messages were not in it yet\n"), 20U);
  plant("update t_message set content='number' where id=3;delete from t_message where id=4");
  EXPECT_EQ(compare({"number 3"}, std::string(kUsed) + "; 5 messages were not in it yet; 2 "
                                                       "messages had changed\n"),
            0U);
}

TEST_F(SearchIndexTest, SearchScansIfLessThanHalfIsIndexed) {
  import_numbers(1, 30);
  update();
  import_numbers(31, 61);
  EXPECT_EQ(compare({"number"},
                    "corvan: the search index is not up to date; run 'corvan "
                    "search-index " +
                        store() + "'\n"),
            20U);
}

TEST_F(SearchIndexTest, SearchLeavesTheIndexAsItIs) {
  import_numbers(1, 30);
  update();
  import_numbers(31, 40);
  plant("update t_message set content='changed' where id=3");
  const Listing before = listing(store());
  EXPECT_EQ(compare({"changed"}), 1U);
  EXPECT_TRUE(listing(store()) == before);
}

TEST_F(SearchIndexTest, SearchUsesAReadOnlyIndex) {
  import_numbers(1, 30);
  update();
  import_numbers(31, 40);
  plant("update t_message set content='changed' where id=3");
  make_read_only();
  EXPECT_EQ(compare({"changed"}), 1U);
  make_writable();
}

// While a client has the index open, a part of it is in the index's log.
TEST_F(SearchIndexTest, SearchReadsTheLogOfTheIndex) {
  import_numbers(1, 10);
  update();
  const WriteAhead client(index_file(), "begin;select * from state");
  import_numbers(11, 40);
  update();
  EXPECT_GT(fs::file_size(index_file() + "-wal"), 0U);
  const Listing before = listing(store());
  EXPECT_EQ(compare({"number 7"}, std::string(kUsed) + "\n"), 1U);
  EXPECT_TRUE(listing(store()) == before);
}

TEST_F(SearchIndexTest, AnInterruptedComparisonDoesNotHideChanges) {
  import_numbers(1, 30);
  update();
  plant("update t_message set content='changed' where id=3");
  corvan_test::plant(index_file(), "update state set swept_to=20");
  EXPECT_EQ(compare({"changed"}), 1U);
  EXPECT_EQ(update()["mended"], 1);
}

TEST_F(SearchIndexTest, ADamagedIndexIsNotUsedOrDoesNoHarm) {
  import_numbers(1, 300);
  update();
  const std::string sound = read_file(index_file());
  const std::vector<std::string> damaged = {"", "no database", std::string(sound.size(), 'x'),
                                            sound.substr(0, sound.size() / 2)};
  for (const std::string& content : damaged) {
    write_file(index_file(), content);
    EXPECT_EQ(compare({"number 17"},
                      "corvan: the search index is empty, damaged or of another "
                      "store; run 'corvan search-index " +
                          store() + "'\n"),
              1U);
    EXPECT_EQ(read_file(index_file()), content);
  }
  for (std::size_t page = 1; page * 4096 < sound.size(); ++page) {
    std::string content = sound;
    content.replace(page * 4096 + 100, 3000, 3000, 'x');
    write_file(index_file(), content);
    SCOPED_TRACE(page);
    EXPECT_EQ(compare({"number 17"}, "corvan: "), 1U);
    EXPECT_EQ(read_file(index_file()), content);
  }
  EXPECT_EQ(update()["messages"], 300);
  EXPECT_EQ(compare({"number 17"}), 1U);
}

TEST_F(SearchIndexTest, AnIndexOfAnotherStoreIsNotUsed) {
  import_numbers(1, 60);
  update();
  const std::string other = read_file(index_file());
  fs::remove_all(store());
  std::string lines;
  for (int i = 0; i < 60; ++i) lines += line({{"content", "other " + std::to_string(i)}});
  import(lines);
  write_file(index_file(), other);
  EXPECT_EQ(compare({"other"}, "corvan: the search index is empty, damaged or of another store; "),
            20U);
  EXPECT_EQ(update()["added"], 60);
  EXPECT_EQ(compare({"other"}), 20U);
}

TEST_F(SearchIndexTest, ALiteralSearchDoesNotUseIt) {
  import_numbers(1, 3);
  update();
  const Outcome outcome = run({"search", store(), "number", "--literal", "--json"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(Json::parse(outcome.out)["index"], false);
}

}  // namespace
}  // namespace corvan_test
