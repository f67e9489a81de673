// Journals and logs that would make SQLite change or delete files.

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/hostile_files.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

std::string four_bytes(std::size_t number) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(number >> shift & 0xffU);
  return bytes;
}

const std::string kJournalMagic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";

// A rollback journal that restores the first page of a file. It belongs to a transaction over
// several databases; `super` is the path of their super-journal.
std::string journal_with_super(const std::string& content, const std::string& super) {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kSector = 512;
  const std::string page = content.substr(0, kPage);
  std::size_t page_sum = 1;
  for (std::size_t at = kPage - 200; at > 0 && at < kPage; at -= 200) {
    page_sum += static_cast<unsigned char>(page[at]);
  }
  std::string journal = kJournalMagic + four_bytes(1) + four_bytes(1) +
                        four_bytes(content.size() / kPage) + four_bytes(kSector) +
                        four_bytes(kPage);
  journal.resize(kSector);
  journal += four_bytes(1) + page + four_bytes(page_sum);
  std::size_t name_sum = 0;
  for (const char byte : super) name_sum += static_cast<std::size_t>(byte);
  return journal + four_bytes(0x40000000 / kPage + 1) + super + four_bytes(super.size()) +
         four_bytes(name_sum) + kJournalMagic;
}

class HostileJournalTest : public HostileFilesTest {};

// SQLite would open the file that the journal names, and delete it.
TEST_F(HostileJournalTest, RefusesAJournalThatNamesAnotherFile) {
  plant("pragma journal_mode=delete");
  std::vector<Arguments> commands = looking();
  for (const Arguments& arguments : changing()) commands.push_back(arguments);
  const std::string victim = write("victim", "mine");
  write_file(file() + "-journal", journal_with_super(read_file(file()), victim));
  expect_refused(commands, file() + "-journal");
  EXPECT_EQ(run({"check", store()}).err,
            "corvan: " + file() +
                "-journal: belongs to a transaction over several databases; open them with the "
                "program that wrote it, or move it away and try again\n");
  EXPECT_EQ(read_file(victim), "mine");
}

TEST_F(HostileJournalTest, RefusesAJournalThatNamesAFifo) {
  plant("pragma journal_mode=delete");
  std::vector<Arguments> commands = looking();
  for (const Arguments& arguments : changing()) commands.push_back(arguments);
  const std::string fifo = folder.file("fifo");
  make_fifo(fifo);
  write_file(file() + "-journal", journal_with_super(read_file(file()), fifo));
  expect_refused(commands, file() + "-journal");
  EXPECT_TRUE(fs::exists(fifo));
}

TEST_F(HostileJournalTest, RefusesAJournalOfTheSearchIndexThatNamesAnotherFile) {
  const std::string index = store() + "/corvan-search";
  output({"search-index", store()});
  const std::string victim = write("victim", "mine");
  corvan_test::plant(index, "pragma journal_mode=delete");
  write_file(index + "-journal", journal_with_super(read_file(index), victim));
  expect_refused({{"search-index", store()}}, index + "-journal");
  const Outcome outcome = run({"search", store(), "hi"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err.find("corvan: the search index is not used: " + index + "-journal: "), 0U)
      << outcome.err;
  EXPECT_EQ(read_file(victim), "mine");
}

// SQLite accepts such a log, as it does for a store.
TEST_F(HostileJournalTest, SearchesWithoutAnIndexWhoseLogHasAnotherPageSize) {
  const std::string index = store() + "/corvan-search";
  output({"search-index", store()});
  const std::string other = folder.file("other");
  fs::copy_file(index, other);
  corvan_test::plant(other, "pragma journal_mode=delete;pragma page_size=65536;vacuum");
  const WriteAhead log(other, "update state set swept_to=1");
  fs::copy_file(other + "-wal", index + "-wal", fs::copy_options::overwrite_existing);
  const Outcome outcome = run({"search", store(), "hi"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err.find("corvan: the search index is empty, damaged or of another store; "),
            0U)
      << outcome.err;
}

// As journal_mode=persist leaves it.
TEST_F(HostileJournalTest, IgnoresAFinishedJournal) {
  plant("pragma journal_mode=delete");
  const std::string victim = write("victim", "mine");
  std::string journal = journal_with_super(read_file(file()), victim);
  journal.replace(0, 28, 28, '\0');
  write_file(file() + "-journal", journal);
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(run(changing()[0]).status, 0);
  EXPECT_EQ(read_file(victim), "mine");
}

TEST_F(HostileJournalTest, RollsBackAJournalThatNamesNoOtherFile) {
  plant("pragma journal_mode=delete");
  const std::string journal = journal_with_super(read_file(file()), "");
  write_file(file() + "-journal", journal.substr(0, journal.size() - 20));
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(run(changing()[0]).status, 0);
  EXPECT_FALSE(fs::exists(file() + "-journal"));
}

// SQLite accepts such a log. When it writes to the log, it reads memory beyond its pages.
TEST_F(HostileJournalTest, TreatsALogOfAnotherPageSizeAsDamage) {
  const std::string other = folder.file("other");
  fs::copy_file(file(), other);
  corvan_test::plant(other, "pragma journal_mode=delete;pragma page_size=65536;vacuum");
  const WriteAhead log(other, "update t_session set draft='x'");
  std::vector<Arguments> commands = looking();
  for (const Arguments& arguments : changing()) commands.push_back(arguments);
  fs::copy_file(other + "-wal", file() + "-wal");
  const std::string before = read_file(file()) + read_file(file() + "-wal");
  for (const bool has_index : {false, true}) {
    if (has_index) fs::copy_file(other + "-shm", file() + "-shm");
    for (const Arguments& arguments : commands) {
      const Outcome outcome = run(arguments);
      EXPECT_NE(outcome.status, 0) << arguments[0];
      EXPECT_NE((outcome.out + outcome.err).find("malformed"), std::string::npos)
          << arguments[0] << ": " << outcome.err;
      EXPECT_EQ(read_file(file()) + read_file(file() + "-wal"), before) << arguments[0];
      fs::remove_all(folder.file("made"));
    }
  }
}

// SQLite deletes a log and a journal beside an empty file.
TEST_F(HostileJournalTest, ImportKeepsALogWhoseStoreIsMissing) {
  const struct {
    const char* suffix;
    const char* error;
  } cases[] = {
      {"-wal",
       ": a log without its store; 'corvan salvage' rescues what can be read; move it away and "
       "try again\n"},
      {"-journal", ": a journal without its store; move it away and try again\n"}};
  for (const bool is_empty : {false, true}) {
    for (const auto& [suffix, error] : cases) {
      fs::remove(file());
      if (is_empty) write_file(file(), "");
      write_file(file() + suffix, "messages");
      const Rows before = names_in(store());
      const Outcome outcome = run(changing()[0]);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.err, "corvan: " + file() + suffix + error);
      EXPECT_EQ(read_file(file() + suffix), "messages");
      EXPECT_EQ(names_in(store()), before);
      fs::remove(file() + suffix);
    }
  }
  output(changing()[0]);
}

// As a process leaves it that is killed while it creates the store.
TEST_F(HostileJournalTest, ImportIgnoresTheJournalOfAnEmptyFile) {
  write_file(file(), "");
  std::string journal = journal_with_super(std::string(4096, '\0'), "").substr(0, 512);
  journal.replace(8, 12, four_bytes(0) + four_bytes(1) + four_bytes(0));
  write_file(file() + "-journal", journal);
  output(changing()[0]);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"1"});
}

}  // namespace
}  // namespace corvan_test
