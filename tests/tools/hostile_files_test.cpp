// Files in and around a store that somebody put there to harm whoever looks: no command may wait
// for them, fill the disk with them, or overwrite or delete what is not its own.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

void make_fifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make a FIFO");
}

void make_socket(const std::string& path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::runtime_error("the path is too long");
  std::copy(path.begin(), path.end(), address.sun_path);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot make a socket");
  }
  close(fd);
}

// Makes one kind of what is no file at a path.
struct NoFile {
  const char* what;
  void (*make)(const std::string& path);
};
const std::vector<NoFile> kNoFiles = {
    {"FIFO", make_fifo},
    {"socket", make_socket},
    {"folder", [](const std::string& path) { fs::create_directory(path); }},
    {"link to a device", [](const std::string& path) { fs::create_symlink("/dev/zero", path); }},
    {"link to nothing", [](const std::string& path) { fs::create_symlink(path + "-none", path); }},
};

std::string four_bytes(std::size_t number) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(number >> shift & 0xffU);
  return bytes;
}

const std::string kJournalMagic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";

// A rollback journal that gives a file its first page back, of a transaction over several
// databases, which `super` names.
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

class HostileFilesTest : public ToolTest {
 protected:
  HostileFilesTest() {
    import(line({{ "server_uid", "one" }}));
    most_seconds = 20;
  }

  std::vector<Arguments> looking() const {
    return {{"list", store()},
            {"history", store(), "room", "--type", "group"},
            {"unread", store()},
            {"show", store(), "1"},
            {"search", store(), "hi"},
            {"stats", store()},
            {"check", store()},
            {"verify", store()},
            {"verify", store(), "--repair", "counters", "--dry-run"},
            {"index", store(), "--dry-run"},
            {"export", store(), "--format", "jsonl"},
            {"export", store(), "--format", "html", "--output", folder.file("made")},
            {"backup", store(), folder.file("made")}};
  }
  std::vector<Arguments> changing() const {
    return {{"import", store(), "--user", "me", log_},
            {"compact", store()},
            {"index", store()},
            {"verify", store(), "--repair", "counters"}};
  }

  // Each of the commands ends with one line of error that names the path, and changes nothing.
  void expect_refused(const std::vector<Arguments>& commands, const std::string& path) {
    const Listing before = listing(folder.path());
    const Rows names = names_in(store());
    for (const Arguments& arguments : commands) {
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2) << arguments[0];
      EXPECT_EQ(outcome.err.find("corvan: " + path + ": "), 0U) << arguments[0] << outcome.err;
      EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
    EXPECT_EQ(listing(folder.path()), before);
    EXPECT_EQ(names_in(store()), names);
  }

  static Rows names_in(const std::string& path) {
    Rows names;
    for (const auto& entry : fs::directory_iterator(path)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string log_ = write("log.jsonl", line({}));
};

TEST_F(HostileFilesTest, NoCommandWaitsForAFifoInAStore) {
  for (const char* name : {"/corvan-wal", "/corvan-journal", "/corvan-shm", "/corvan"}) {
    SCOPED_TRACE(name);
    const std::string path = store() + name;
    if (path == file()) fs::remove(path);
    make_fifo(path);
    // The index of the log is made anew for a copy.
    if (std::string(name) != "/corvan-shm") expect_refused(looking(), path);
    expect_refused(changing(), path);
    fs::remove(path);
  }
}

TEST_F(HostileFilesTest, WhatIsNoFileInAStoreIsRefused) {
  const std::vector<Arguments> commands = {looking()[0], looking()[12], changing()[0],
                                           changing()[1]};
  for (const char* name : {"/corvan-wal", "/corvan-journal"}) {
    for (const NoFile& one : kNoFiles) {
      SCOPED_TRACE(std::string(name) + ": " + one.what);
      one.make(store() + name);
      expect_refused(commands, store() + name);
      fs::remove(store() + name);
    }
  }
  fs::remove(file());
  for (const NoFile& one : kNoFiles) {
    SCOPED_TRACE(one.what);
    one.make(file());
    expect_refused(commands, file());
    fs::remove(file());
  }
}

TEST_F(HostileFilesTest, AnImportMakesNoStoreBesideWhatIsNoLog) {
  fs::remove(file());
  make_fifo(file() + "-wal");
  expect_refused({changing()[0]}, file() + "-wal");
}

TEST_F(HostileFilesTest, SalvageRefusesALogThatIsNone) {
  for (const NoFile& one : kNoFiles) {
    SCOPED_TRACE(one.what);
    one.make(file() + "-wal");
    const Outcome outcome = run({"salvage", store(), folder.file("made")});
    EXPECT_EQ(outcome.status, 2);
    const bool is_link = std::string(one.what) == "link to nothing";
    EXPECT_EQ(outcome.err, "corvan: " + fs::canonical(store()).string() + "/corvan-wal: " +
                               (is_link ? "a link that leads to no file" : "not a file") +
                               "; move it away and try again\n");
    EXPECT_EQ(run({"salvage", store(), folder.file("made"), "--without-log"}).status, 0);
    fs::remove_all(folder.file("made"));
    fs::remove(file() + "-wal");
  }
}

// SQLite would open the file that the journal names, and delete it.
TEST_F(HostileFilesTest, AJournalThatNamesAnotherFileIsRefused) {
  plant("pragma journal_mode=delete");
  std::vector<Arguments> commands = looking();
  for (const Arguments& arguments : changing()) commands.push_back(arguments);
  const std::string victim = write("victim", "mine");
  const std::string fifo = folder.file("fifo");
  make_fifo(fifo);
  for (const std::string& super : {victim, fifo}) {
    write_file(file() + "-journal", journal_with_super(read_file(file()), super));
    expect_refused(commands, file() + "-journal");
    EXPECT_TRUE(fs::exists(super));
  }
  EXPECT_EQ(run({"check", store()}).err,
            "corvan: " + file() +
                "-journal: belongs to a transaction over several databases; open them with the "
                "program that wrote it, or move it away and try again\n");
  EXPECT_EQ(read_file(victim), "mine");
}

// As journal_mode=persist leaves it.
TEST_F(HostileFilesTest, AJournalThatIsDoneWithIsPassedOver) {
  plant("pragma journal_mode=delete");
  const std::string victim = write("victim", "mine");
  std::string journal = journal_with_super(read_file(file()), victim);
  journal.replace(0, 28, 28, '\0');
  write_file(file() + "-journal", journal);
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(run(changing()[0]).status, 0);
  EXPECT_EQ(read_file(victim), "mine");
}

TEST_F(HostileFilesTest, AJournalOfTheStoreAloneIsRolledBack) {
  plant("pragma journal_mode=delete");
  const std::string journal = journal_with_super(read_file(file()), "");
  write_file(file() + "-journal", journal.substr(0, journal.size() - 20));
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(run(changing()[0]).status, 0);
  EXPECT_FALSE(fs::exists(file() + "-journal"));
}

// SQLite reads such a log, and when it writes to it, memory beyond its pages.
TEST_F(HostileFilesTest, ALogOfAnotherPageSizeIsDamage) {
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

TEST_F(HostileFilesTest, ALinkToAStoresFileIsFollowed) {
  const std::string other = folder.file("other");
  fs::create_directory(other);
  fs::create_symlink(file(), other + "/corvan");
  EXPECT_EQ(json({"list", other, "--json"}).size(), 1U);
  EXPECT_EQ(run({"import", other, "--user", "me", log_}).status, 0);
  make_fifo(file() + "-wal");
  for (const char* command : {"list", "compact"}) {
    const Outcome outcome = run({command, other});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err.find("corvan: " + fs::canonical(store()).string() + "/corvan-wal: "), 0U)
        << outcome.err;
  }
}

TEST_F(HostileFilesTest, ImportReadsWhatIsNoFile) {
  EXPECT_EQ(run({"import", store(), "--user", "me", "/dev/stdin"}, line({})).status, 0);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"2"});
}

TEST_F(HostileFilesTest, ACopyHasTheHolesOfItsFile) {
  // Longer than the disk has room for.
  const std::uintmax_t size = std::uintmax_t{1} << 42;
  write_file(file() + "-wal", "");
  std::error_code error;
  fs::resize_file(file() + "-wal", size, error);
  if (error) GTEST_SKIP() << "the file system has no files of this size";
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(json({"backup", store(), folder.file("made"), "--json"})["ok"], true);
  EXPECT_EQ(fs::file_size(file() + "-wal"), size);
  fs::remove(file() + "-wal");
}

TEST_F(HostileFilesTest, AFileMayEndInAHole) {
  // Content behind a hole, and a hole at the end, are copied as they are.
  const std::string wal = file() + "-wal";
  write_file(wal, std::string(70000, 'a'));
  fs::resize_file(wal, std::uintmax_t{1} << 21);
  const int fd = open(wal.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(pwrite(fd, "b", 1, (1 << 20) + 5), 1);
  close(fd);
  std::string content = read_file(file());
  content.replace(0, content.size(), content.size(), 'x');  // damaged: copied as it is
  write_file(file(), content);
  EXPECT_EQ(run({"backup", store(), folder.file("made")}).status, 1);
  EXPECT_EQ(read_file(folder.file("made/corvan-wal")), read_file(wal));
  EXPECT_EQ(read_file(folder.file("made/corvan")), content);
}

// Outputs.

TEST_F(HostileFilesTest, NoOutputTakesTheNameOfAStoresFile) {
  const std::string exported =
      write("export.jsonl", output({"export", store(), "--format", "jsonl"}));
  const std::string other = folder.file("other");
  fs::create_directory(other);
  write_file(other + "/corvan", "of any content");
  fs::create_directory(store() + "/sub");
  fs::create_directory_symlink(store(), folder.file("linked"));
  const std::vector<std::string> places = {
      store() + "/corvan-wal",          store() + "/corvan-shm",   store() + "/corvan-journal",
      store() + "/./corvan-wal",        store() + "//corvan-wal/", store() + "/sub/../corvan-wal",
      folder.file("linked/corvan-wal"), other + "/corvan-journal"};
  for (const std::string& place : places) {
    SCOPED_TRACE(place);
    const std::vector<Arguments> commands = {
        {"export", store(), "--format", "jsonl", "--output", place},
        {"export", store(), "--format", "csv", "--output", place},
        {"export", store(), "--format", "html", "--output", place},
        {"backup", store(), place},
        {"salvage", store(), place},
        {"restore", exported, place},
        {"import", place, "--user", "me", log_}};
    for (const Arguments& arguments : commands) {
      const Rows before = names_in(store());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      const std::string named = place.back() == '/' ? place.substr(0, place.size() - 1) : place;
      EXPECT_EQ(outcome.err,
                "corvan: " + named + ": the name of a store's own file; name another place\n");
      EXPECT_EQ(names_in(store()), before);
    }
  }
  EXPECT_EQ(names_in(other), Rows{"corvan"});
}

TEST_F(HostileFilesTest, ARepairKeepsNoCopyUnderTheNameOfAStoresFile) {
  plant("update t_session set unread_count=77");
  const Outcome outcome =
      run({"verify", store(), "--repair", "counters", "--backup", store() + "/corvan-journal"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + store() +
                "/corvan-journal: the name of a store's own file; name another place\n");
  EXPECT_EQ(rows("select unread_count from t_session"), Rows{"77"});
}

TEST_F(HostileFilesTest, NoOutputTakesTheNameOfALogBesideAnyDatabase) {
  // The store's file is a link: its log lies beside the file itself.
  fs::rename(file(), folder.file("real.db"));
  fs::create_symlink(folder.file("real.db"), file());
  const Outcome outcome =
      run({"export", store(), "--format", "csv", "--output", folder.file("real.db-wal")});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_FALSE(fs::exists(folder.file("real.db-wal")));
  // A log whose file is gone is salvaged, and no new folder takes the file's name.
  const std::string lost = folder.file("lost");
  fs::create_directory(lost);
  write_file(lost + "/corvan-wal", "a log");
  EXPECT_EQ(run({"backup", store(), lost + "/corvan"}).status, 2);
}

TEST_F(HostileFilesTest, AnImportMakesNoFolderOfAStoresNameOnTheWay) {
  const Rows before = names_in(store());
  for (const char* place : {"/corvan-wal/sub", "/corvan-shm/sub/", "/new/../corvan-wal/sub"}) {
    const Outcome outcome = run({"import", store() + place, "--user", "me", log_});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find(": the name of a store's own file; name another place\n"),
              std::string::npos)
        << outcome.err;
    EXPECT_EQ(names_in(store()), before);
  }
  output({"import", folder.file("new/folders/"), "--user", "me", log_});
  EXPECT_EQ(names_in(folder.file("new/folders")), Rows{"corvan"});
}

TEST_F(HostileFilesTest, AnOutputMayHaveTheNameOfAStoreElsewhere) {
  const std::string backups = folder.file("backups");
  fs::create_directory(backups);
  output({"backup", store(), backups + "/corvan"});
  output({"export", store(), "--format", "csv", "--output", store() + "/corvan.csv"});
  output({"export", store(), "--format", "csv", "--output", backups + "/notes-journal"});
  EXPECT_EQ(names_in(backups), (Rows{"corvan", "notes-journal"}));
}

TEST_F(HostileFilesTest, NoOutputTakesTheNameOfALogInAnyFolder) {
  const std::string empty = folder.file("empty");
  fs::create_directory(empty);
  for (const char* name : {"/corvan-wal", "/corvan-shm", "/corvan-journal"}) {
    const Outcome outcome = run({"export", store(), "--format", "csv", "--output", empty + name});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err,
              "corvan: " + empty + name + ": the name of a store's own file; name another place\n");
  }
  EXPECT_EQ(names_in(empty), Rows{});
}

// SQLite deletes a log and a journal beside an empty file.
TEST_F(HostileFilesTest, AnImportKeepsALogWhoseStoreIsGone) {
  const struct {
    const char* suffix;
    const char* error;
  } cases[] = {
      {"-wal",
       ": a log whose store is gone; 'corvan salvage' brings out what it holds; move it away and "
       "try again\n"},
      {"-journal", ": a journal whose store is gone; move it away and try again\n"}};
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

// As a process leaves it that is killed while it makes the store.
TEST_F(HostileFilesTest, AJournalOfAnEmptyFileHoldsUpNoImport) {
  write_file(file(), "");
  std::string journal = journal_with_super(std::string(4096, '\0'), "").substr(0, 512);
  journal.replace(8, 12, four_bytes(0) + four_bytes(1) + four_bytes(0));
  write_file(file() + "-journal", journal);
  output(changing()[0]);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"1"});
}

// Temporary copies that a killed process left.

class AbandonedCopyTest : public HostileFilesTest {
 protected:
  // A folder among the temporary files with a file in it.
  std::string make_copy(const std::string& name) const {
    std::string path = copies() + "/" + name;
    fs::create_directory(path);
    write_file(path + "/corvan", "messages");
    return path;
  }

  // A program that is being killed when it has made its copy of the store.
  void kill_while_looking() {
    const std::string input = temporary("in");
    write_file(input, "");
    std::string lines;
    for (int i = 0; i < 2000; ++i) lines += line({{"content", std::string(5000, 'x')}});
    most_seconds = 0;
    import(lines);
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(fcntl(ends[0], F_SETFD, FD_CLOEXEC), 0);
    // It waits for somebody to read what it exports.
    const pid_t pid = start({"export", store(), "--format", "jsonl"}, ends[1]);
    char byte = 0;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
    EXPECT_EQ(names_in(copies()).size(), 1U);
    EXPECT_EQ(output({"check", store()}), "ok\n");
    EXPECT_EQ(names_in(copies()).size(), 1U) << "a living process's copy was removed";
    kill(pid, SIGKILL);
    EXPECT_EQ(wait(pid), -SIGKILL);
    close(ends[0]);
  }
};

TEST_F(AbandonedCopyTest, ACopyOfAKilledProcessGoesAtTheNextStart) {
  kill_while_looking();
  ASSERT_EQ(names_in(copies()).size(), 1U);
  EXPECT_FALSE(names_in(copies() + "/" + names_in(copies())[0]).empty());
  output({"--version"});
  EXPECT_EQ(names_in(copies()), Rows{});
}

TEST_F(AbandonedCopyTest, ACopyWithFoldersInItGoes) {
  const std::string path = make_copy("corvan-look-aZ09xy");
  fs::create_directory(path + "/sub");
  const std::string kept = write("kept", "mine");
  fs::create_symlink(kept, path + "/sub/link");
  fs::create_directory_symlink(store(), path + "/store");
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{});
  EXPECT_EQ(read_file(kept), "mine");
  EXPECT_EQ(names_in(store()), Rows{"corvan"});
}

TEST_F(AbandonedCopyTest, WhatIsNoCopyStays) {
  const std::string target = folder.file("target");
  fs::create_directory(target);
  write_file(target + "/kept", "mine");
  fs::create_directory_symlink(target, copies() + "/corvan-look-linked");
  write_file(copies() + "/corvan-look-afile0", "mine");
  for (const char* name : {"corvan-look-", "corvan-look-short", "corvan-look-longer7", "corvan",
                           "corvan-look-with-2", "my-corvan-look-abcdef"}) {
    make_copy(name);
  }
  const Rows before = names_in(copies());
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), before);
  EXPECT_EQ(read_file(target + "/kept"), "mine");
  for (const std::string& name : before) fs::remove_all(copies() + "/" + name);
}

TEST_F(AbandonedCopyTest, ALockedCopyStays) {
  const std::string path = make_copy("corvan-look-locked");
  const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-locked"});
  close(fd);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{});
}

TEST_F(AbandonedCopyTest, AFileSystemWithoutLocksKeepsNobodyFromLooking) {
  const auto lock_fails = [this](int error, const std::string& times) {
    variables = {"LD_PRELOAD=" CORVAN_FAILING_LOCK, "CORVAN_LOCK_FAILS=" + times,
                 "CORVAN_LOCK_ERROR=" + std::to_string(error)};
  };
  const std::string dead = make_copy("corvan-look-dead00");
  lock_fails(ENOLCK, "1000");
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-dead00"}) << "its process may be there";
  lock_fails(EIO, "1000");
  const Outcome outcome = run({"check", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(": cannot be locked: Input/output error\n"), std::string::npos);
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-dead00"});
  fs::remove_all(dead);
  lock_fails(EINTR, "3");
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(AbandonedCopyTest, AnotherUsersCopyStays) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make another user's folder";
  const std::string path = make_copy("corvan-look-others");
  ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-others"});
  fs::remove_all(path);
}

TEST_F(AbandonedCopyTest, ProcessesThatStartTogetherLeaveEachOthersCopies) {
  for (int round = 0; round < 10; ++round) {
    make_copy("corvan-look-dead00");
    std::vector<pid_t> started;
    for (int i = 0; i < 8; ++i) {
      started.push_back(start({"check", store()}, open("/dev/null", O_WRONLY | O_CLOEXEC)));
    }
    for (const pid_t pid : started) EXPECT_EQ(wait(pid), 0) << read_err();
    EXPECT_EQ(names_in(copies()), Rows{});
  }
}

// A store whose file may only be read, in a folder that may be written.

TEST_F(HostileFilesTest, WhatIsRefusedForAReadOnlyFileLeavesNothing) {
  make_read_only();
  chmod(store().c_str(), 0777);
  const Listing before = listing(store());
  for (const Arguments& arguments : changing()) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() +
                               ": attempt to write a readonly database; nothing was changed; make "
                               "the file and its folder writable\n");
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
}

TEST_F(HostileFilesTest, WhatIsRefusedForAReadOnlyLogLeavesNothing) {
  const std::string other = folder.file("other");
  {
    const WriteAhead log(file(), "update t_session set draft='x'");
    fs::copy(store(), other);
  }
  fs::remove(other + "/corvan-shm");
  fs::remove_all(store());
  fs::rename(other, store());
  unprivileged = true;
  chmod((file() + "-wal").c_str(), 0444);
  const Listing before = listing(store());
  for (const Arguments& arguments : changing()) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() +
                               "-wal: attempt to write a readonly database; nothing was changed; "
                               "make the file and its folder writable\n");
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
}

}  // namespace
}  // namespace corvan_test
