// Files of a store that are not regular, not writable, or have holes.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/tools/hostile_files.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

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

// Creates something at a path that is not a regular file.
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

class IrregularFilesTest : public HostileFilesTest {};

TEST_F(IrregularFilesTest, NoCommandWaitsForAFifo) {
  for (const char* name : {"/corvan-wal", "/corvan-journal", "/corvan-shm", "/corvan"}) {
    SCOPED_TRACE(name);
    const std::string path = store() + name;
    if (path == file()) fs::remove(path);
    make_fifo(path);
    // A copy does not need the log's index: SQLite rebuilds it.
    if (std::string(name) != "/corvan-shm") expect_refused(looking(), path);
    expect_refused(changing(), path);
    fs::remove(path);
  }
}

TEST_F(IrregularFilesTest, RefusesStoreFilesThatAreNotRegular) {
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

TEST_F(IrregularFilesTest, ImportCreatesNoStoreBesideALogThatIsNotRegular) {
  fs::remove(file());
  make_fifo(file() + "-wal");
  expect_refused({changing()[0]}, file() + "-wal");
}

TEST_F(IrregularFilesTest, SalvageRefusesALogThatIsNotRegular) {
  for (const NoFile& one : kNoFiles) {
    SCOPED_TRACE(one.what);
    one.make(file() + "-wal");
    const Outcome outcome = run({"salvage", store(), folder.file("made")});
    EXPECT_EQ(outcome.status, 2);
    const bool is_link = std::string(one.what) == "link to nothing";
    EXPECT_EQ(outcome.err, "corvan: " + fs::canonical(store()).string() +
                               "/corvan-wal: " + (is_link ? "a dangling link" : "not a file") +
                               "; move it away and try again\n");
    EXPECT_EQ(run({"salvage", store(), folder.file("made"), "--without-log"}).status, 0);
    fs::remove_all(folder.file("made"));
    fs::remove(file() + "-wal");
  }
}

TEST_F(IrregularFilesTest, FollowsALinkToTheStore) {
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

TEST_F(IrregularFilesTest, ImportReadsFromAFifo) {
  EXPECT_EQ(run({"import", store(), "--user", "me", "/dev/stdin"}, line({})).status, 0);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"2"});
}

TEST_F(IrregularFilesTest, CopiesKeepHoles) {
  // Larger than the disk.
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

TEST_F(IrregularFilesTest, CopiesFilesThatEndInAHole) {
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

// A store whose file may only be read, in a folder that may be written.

TEST_F(IrregularFilesTest, ChangesNothingIfTheFileIsReadOnly) {
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

TEST_F(IrregularFilesTest, ChangesNothingIfTheLogIsReadOnly) {
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
