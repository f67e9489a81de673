#include "tools/store/pending_output.h"
#include "tools/store/interrupt.h"

#include <filesystem>
#include <string>

#include "tests/tools/leased_file.h"
#include "tests/tools/pending_output_fixture.h"
#include "tools/ui/error.h"

namespace corvan_test {
namespace {

using corvan_tool::PendingOutput;
using corvan_tool::ToolError;
namespace fs = std::filesystem;

TEST_F(PendingOutputTest, GetsItsNameWhenKept) {
  {
    PendingOutput made = PendingOutput::folder(place("made") + "/");
    write_file(made.path() + "/inside", "x");
    EXPECT_FALSE(fs::exists(place("made")));
    made.keep();
  }
  EXPECT_EQ(content(), Rows({"made"}));
  EXPECT_EQ(read_file(place("made/inside")), "x");
}

TEST_F(PendingOutputTest, DisappearsUnlessKept) {
  {
    const PendingOutput one = PendingOutput::folder(place("one"));
    write_file(one.path() + "/inside", "x");
    const PendingOutput two = PendingOutput::file(place("two"));
    write_file(two.path(), "x");
    EXPECT_EQ(content().size(), 2U);
  }
  EXPECT_EQ(content(), Rows());
}

TEST_F(PendingOutputTest, RefusesAPlaceThatExists) {
  write_file(place("there"), "mine");
  EXPECT_THROW(PendingOutput::file(place("there")), ToolError);
  EXPECT_THROW(PendingOutput::folder(place("there")), ToolError);
  PendingOutput late = PendingOutput::file(place("late"));
  write_file(late.path(), "x");
  write_file(place("late"), "mine");
  EXPECT_THROW(late.keep(), ToolError);
  EXPECT_EQ(read_file(place("late")), "mine");
  EXPECT_EQ(read_file(place("there")), "mine");
}

TEST_F(PendingOutputTest, AcceptsAnyFileName) {
  std::string name(1, 'n');
  while (name.size() < 253) name += "é";
  PendingOutput::file(place(name)).keep();
  PendingOutput::folder(place("f" + name)).keep();
  EXPECT_EQ(content(), Rows({"f" + name, name}));
}

// Why output cannot be created at this place; empty if it can.
std::string error_of(const std::string& at) {
  try {
    PendingOutput::file(at);
  } catch (const ToolError& error) {
    return error.what();
  }
  return "";
}

TEST_F(PendingOutputTest, ReportsWhyAPlaceIsRefused) {
  write_file(place("there"), "mine");
  EXPECT_EQ(error_of(place("there/a")), place("there") + ": not a folder; name one");
  EXPECT_EQ(error_of(place("none/a")), place("none") + ": no such folder; create it first");
}

TEST_F(PendingOutputTest, ReportsANameThatIsTooLong) {
  const std::string name(300, 'n');
  EXPECT_EQ(error_of(place(name)), place(name) + ": File name too long");
}

TEST_F(InterruptTest, ASignalRemovesPendingOutput) {
  import(line({}));
  write_file(file() + "-wal", "");
  for (const int interrupt : interrupts()) {
    // The command waits for the log after it has created its new folder.
    const LeasedFile log(file() + "-wal");
    if (!log.is_held()) GTEST_SKIP() << "the file system has no leases";
    const pid_t pid = start({"backup", store(), folder.file("new")}, null_output());
    EXPECT_TRUE(log.wait_for_opener());
    EXPECT_EQ(listing(folder.path()).size(), 2U);
    interrupt_process(pid, interrupt);
    EXPECT_EQ(wait(pid), interrupted_status(interrupt));
    EXPECT_EQ(listing(folder.path()).size(), 1U) << interrupt;
  }
}

}  // namespace
}  // namespace corvan_test
