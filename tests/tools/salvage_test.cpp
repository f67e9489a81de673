// The command salvage: its files, its output, its failures.

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <thread>

#include "tests/tools/salvage_fixture.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

TEST_F(SalvageTest, ReadsAFileOfAnyNameInAReadOnlyFolder) {
  const std::string place = folder.file("medium");
  std::filesystem::create_directory(place);
  std::filesystem::rename(file(), place + "/old.bak");
  ASSERT_EQ(chmod((place + "/old.bak").c_str(), 0444), 0);
  ASSERT_EQ(chmod(place.c_str(), 0555), 0);
  const Listing before = listing(place);
  unprivileged = true;
  const std::string made = store() + "/made";
  const std::string text = output({"salvage", place + "/old.bak", made});
  EXPECT_EQ(
      text.find("from " + std::filesystem::canonical(place).generic_u8string() + "/old.bak\n"), 0U);
  EXPECT_NE(text.find("\nnext: corvan verify " + made + " --repair counters,latest,times\n"),
            std::string::npos);
  EXPECT_EQ(listing(place), before);
  EXPECT_EQ(corvan_test::rows(made + "/corvan", "select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, NewStoreTakesImports) {
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

TEST_F(SalvageTest, QuotesTheNextCommandForTheShell) {
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

TEST_F(SalvageTest, NextCommandLeavesNothingToRepair) {
  std::string damaged = sound;
  overwrite_rows(damaged, "t_session");
  // Also lose the newest messages. The conversations keep the times of these messages.
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

TEST_F(SalvageTest, MakesNoStoreFromOtherFiles) {
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
    EXPECT_NE(outcome.out.find("next: salvage another copy of the file, or restore a backup\n"),
              std::string::npos);
    EXPECT_FALSE(file_exists(salvaged));
    const Json report = salvage(1);
    EXPECT_EQ(report["folder"], nullptr);
    for (const std::string& table : kStoreTables)
      EXPECT_EQ(report["tables"][table]["made"], 0) << table;
  }
}

TEST_F(SalvageTest, FailuresLeaveNothing) {
  const std::string empty = folder.file("empty");
  std::filesystem::create_directory(empty);
  const std::string taken = write("taken", "mine");
  const std::string no_file = ": No such file or directory; name the store's folder or file\n";
  const std::map<Arguments, std::string> cases = {
      {{empty, salvaged}, empty + "/corvan" + no_file},
      {{empty + "/none", salvaged}, empty + "/none" + no_file},
      {{store(), taken}, taken + ": exists already; name a new place\n"},
      {{store(), empty}, empty + ": exists already; name a new place\n"},
      {{store(), folder.file("no/where")},
       folder.file("no") + ": no such folder; create it first\n"},
  };
  const Listing before = listing(folder.path());
  for (const auto& [arguments, error] : cases) {
    const Outcome outcome = run({"salvage", arguments[0], arguments[1]});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + error);
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_EQ(listing(folder.path()), before);
}

TEST_F(SalvageTest, RefusesAFifo) {
  const std::string fifo = folder.file("fifo");
  make_fifo(fifo);
  const Listing before = listing(folder.path());
  const Outcome outcome = run({"salvage", fifo, salvaged});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + std::filesystem::canonical(fifo).generic_u8string() + ": not a file\n");
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(listing(folder.path()), before);
}

TEST_F(SalvageTest, AFullDiskLeavesNothing) {
  const Listing before = listing(folder.path());
  largest_file = 100000;
  const Outcome full = run({"salvage", store(), salvaged});
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(full.err.find("corvan: " + salvaged), 0U) << full.err;
  EXPECT_EQ(listing(folder.path()), before);
}

TEST_F(SalvageTest, InterruptLeavesNothing) {
  std::string many;  // so that reading takes long
  for (int i = 0; i < 60; ++i) many += sound;
  write_file(file(), many);
  for (const int interrupt : interrupts()) {
    const pid_t pid = start({"salvage", store(), salvaged}, null_output());
    bool begun = false;
    for (int i = 0; i < 5000 && !begun; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      for (const auto& entry :
           std::filesystem::directory_iterator(std::filesystem::u8path(folder.path()))) {
        begun = begun || entry.path().u8string().rfind(salvaged + ".unfinished", 0) == 0;
      }
    }
    EXPECT_TRUE(begun);
    interrupt_process(pid, interrupt);
    EXPECT_EQ(wait(pid), interrupted_status(interrupt));
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::u8path(folder.path()))) {
      EXPECT_EQ(entry.path().u8string().find("salvaged"), std::string::npos) << entry.path();
    }
  }
}

}  // namespace
}  // namespace corvan_test
