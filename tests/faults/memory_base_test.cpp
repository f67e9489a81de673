// The platform facilities when memory runs out.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <new>
#include <streambuf>
#include <string>

#include "base/cv_database.h"
#include "base/cv_utils.h"
#include "base/filesystem.h"
#include "base/log_message.h"
#include "base/pathname.h"
#include "db/cv_db_singleton.h"
#include "tests/faults/memory_faults.h"
#include "tests/support/failures.h"
#include "tests/support/log_capture.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/uncounted.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;

// Too long for a string to hold without an allocation.
std::string longer(const std::string& name) {
  return name + std::string(40, '-');
}

// ---- The platform facilities --------------------------------------------------------------------

// Makes each allocation fail in turn. The work may throw std::bad_alloc, but it leaks nothing.
void each_allocation_fails(const std::function<void()>& work) {
  for (const bool once : {true, false}) {
    for (uint64_t nth = 1, failed = 1; failed > 0; ++nth) {
      const int64_t before = own_blocks();
      arm_memory(Memory::kOwn, nth, once);
      try {
        work();
      } catch (const std::bad_alloc&) {
      }
      disarm_memory();
      failed = failed_allocations();
      EXPECT_EQ(own_blocks(), before) << "allocation " << nth;
    }
  }
}

// The logger keeps what it allocates at its first use.
class OutOfMemoryInBase : public testing::Test {
 protected:
  static void SetUpTestSuite() { cvrtc::LogMessage::MinSeverity(); }
};

TEST_F(OutOfMemoryInBase, PathnameLeaksNothing) {
  const std::string folder = longer("/folder");
  const std::string name = longer("name") + "." + longer("extension");
  each_allocation_fails([&] {
    const cvrtc::Pathname whole(folder + "/" + name);
    cvrtc::Pathname path(folder, name);
    path = whole;
    path.SetFilename(folder.substr(1));
    path.SetExtension(longer("other"));
    path.SetFolder(whole.pathname());
    cvrtc::Filesystem::IsFile(path);
    path.SetPathname(whole.filename());
  });
}

TEST_F(OutOfMemoryInBase, StringReplaceLeaksNothing) {
  each_allocation_fails([] {
    std::string text = "a'b'c'd'e'f'g'h";
    Corvan::CvUtils::string_replace(text, "'", "a text that is longer");
  });
}

TEST_F(OutOfMemoryInBase, TableIndexLeaksNothing) {
  each_allocation_fails([] { Corvan::CvDatabase::table_index(); });
}

// Without memory, a line may be missing or truncated.
TEST_F(OutOfMemoryInBase, LogMessageToASinkMayLoseOrTruncateItsLine) {
  const std::string text = longer("text") + std::string(2000, '.');
  LogCapture log;
  each_allocation_fails([&] {
    cvrtc::LogMessage(cvrtc::LS_ERROR).stream() << text << 12345 << text << "the end";
    const Uncounted uncounted;
    const std::string whole = "4 " + text + "12345" + text + "the end";
    for (const std::string& line : log.take()) EXPECT_EQ(whole.substr(0, line.size()), line);
  });
}

// The written text, stored without an allocation.
class FixedBuffer : public std::streambuf {
 public:
  FixedBuffer() { clear(); }
  void clear() { setp(text_.data(), text_.data() + text_.size()); }
  std::string text() const { return {pbase(), pptr()}; }

 private:
  std::array<char, 8192> text_{};
};

TEST_F(OutOfMemoryInBase, LogMessageToStandardErrorMayLoseOrTruncateItsLine) {
  const std::string text = longer("text") + std::string(2000, '.');
  FixedBuffer buffer;
  std::streambuf* const previous = std::cerr.rdbuf(&buffer);
  each_allocation_fails([&] {
    buffer.clear();
    cvrtc::LogMessage(cvrtc::LS_ERROR).stream() << text << "the end";
    const Uncounted uncounted;
    const std::string written = buffer.text();
    if (written.empty()) return;
    EXPECT_EQ(written.back(), '\n');
    const std::string line = written.substr(0, written.size() - 1);
    EXPECT_EQ((text + "the end").substr(0, line.size()), line);
  });
  std::cerr.rdbuf(previous);
  EXPECT_TRUE(std::cerr.good());
}

TEST_F(OutOfMemoryInBase, ReplacingTheSinkLeaksNothing) {
  const std::string prefix = longer("prefix");
  each_allocation_fails([&] {
    cvrtc::LogMessage::SetSink([prefix](cvrtc::LoggingSeverity, const std::string&) {});
    cvrtc::LogMessage::SetSink(nullptr);
  });
  cvrtc::LogMessage::SetSink(nullptr);
}

// ---- The first line of a process ----------------------------------------------------------------

// A write and a read whose steps fail. Each logs the first line of its process.
bool refused_write(CvDbSingleton& store) {
  store.execute_none_query(refuse("update on t_session"));
  arm_memory(Memory::kOwn, 1, false);
  return store.set_silence("room", Corvan::CV_GROUP, 2);
}

bool interrupted_read(CvDbSingleton& store) {
  const StepsUntilInterrupt none(0);
  int32_t status = 0;
  arm_memory(Memory::kOwn, 1, false);
  return store.get_silence("room", Corvan::CV_GROUP, status);
}

// Runs in a process that has not used the logger yet, which allocates for its first line. Returns 0
// if the operation fails or throws std::bad_alloc, and leaves no statement open.
int without_memory_for_the_logger(bool (*operation)(CvDbSingleton&)) {
  const TemporaryFolder folder;
  CvDbSingleton& store = *CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder.path()), "", "me")) return 10;
  if (!store.add_session("room", Corvan::CV_GROUP, 5, 3, "title", 1, 1)) return 11;
  bool done = false;
  try {
    done = operation(store);
  } catch (const std::bad_alloc&) {
  }
  disarm_memory();
  if (done) return 12;
  const int open = open_statements();
  CvDbSingleton::delete_instance();
  return open;
}

// Each test runs in a new process.
class OutOfMemoryAtTheFirstLogLineDeathTest : public testing::Test {
 protected:
  OutOfMemoryAtTheFirstLogLineDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  void SetUp() override {
#ifdef CORVAN_EMULATED
    GTEST_SKIP() << "a program under an emulator cannot start itself anew";
#endif
  }
};

TEST_F(OutOfMemoryAtTheFirstLogLineDeathTest, FailedWriteLeavesNoStatementOpen) {
  EXPECT_EXIT(std::exit(without_memory_for_the_logger(refused_write)), testing::ExitedWithCode(0),
              "");
}

TEST_F(OutOfMemoryAtTheFirstLogLineDeathTest, FailedReadDoesNotEndTheProcess) {
  EXPECT_EXIT(std::exit(without_memory_for_the_logger(interrupted_read)),
              testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace corvan_test
