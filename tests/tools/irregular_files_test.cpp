// Files of a store that are folders, not writable, or have holes.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "tests/tools/hostile_files.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

TEST_F(IrregularFilesTest, RefusesFoldersInPlaceOfFiles) {
  const std::vector<Arguments> commands = {looking()[0], looking()[12], changing()[0],
                                           changing()[1]};
  for (const char* name : {"/corvan-wal", "/corvan-journal"}) {
    SCOPED_TRACE(name);
    fs::create_directory(store() + name);
    expect_refused(commands, store() + name);
    fs::remove(store() + name);
  }
  fs::remove(file());
  fs::create_directory(file());
  expect_refused(commands, file());
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
  std::fstream(wal, std::ios::in | std::ios::out | std::ios::binary).seekp((1 << 20) + 5) << 'b';
  ASSERT_EQ(read_file(wal)[(1 << 20) + 5], 'b');
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
  fs::permissions(store(), fs::perms::all);
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
  fs::permissions(file() + "-wal", static_cast<fs::perms>(0444));
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
