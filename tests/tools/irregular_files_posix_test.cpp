// Files of a store that are FIFOs, sockets or links.

#include <sys/socket.h>
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
    EXPECT_EQ(outcome.err, "corvan: " + fs::canonical(store()).generic_u8string() +
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
    EXPECT_EQ(
        outcome.err.find("corvan: " + fs::canonical(store()).generic_u8string() + "/corvan-wal: "),
        0U)
        << outcome.err;
  }
}

TEST_F(IrregularFilesTest, ImportReadsFromAFifo) {
  EXPECT_EQ(run({"import", store(), "--user", "me", "/dev/stdin"}, line({})).status, 0);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"2"});
}

}  // namespace
}  // namespace corvan_test
