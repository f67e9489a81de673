// Every file system call of SQLite fails in turn, in every operation; then pairs of calls fail.
// Environment: with CORVAN_FAULT_SHARE=N one call in N is tried; CORVAN_FAULT_PAIRS is the number
// of pairs; CORVAN_FAULT_SEED chooses the calls.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/faults/scene.h"
#include "tests/faults/vfs_shim.h"
#include "tests/support/bounds.h"
#include "tests/support/clock.h"

namespace corvan_test {
namespace {

enum class DiskCall {
  kOpen,
  kRemove,
  kAccess,
  kRead,
  kWrite,
  kTruncate,
  kSync,
  kFileSize,
  kLock,
  kUnlock,
  kCheckReservedLock,
  kFileControl,
  kShmMap,
  kShmLock,
};

// A way in which a kind of call fails.
struct Failure {
  const char* name;
  DiskCall call;
  int code;
};

const Failure kFailures[] = {
    {"OpenFails", DiskCall::kOpen, SQLITE_CANTOPEN},
    {"RemoveFails", DiskCall::kRemove, SQLITE_IOERR_DELETE},
    {"AccessFails", DiskCall::kAccess, SQLITE_IOERR_ACCESS},
    {"ReadFails", DiskCall::kRead, SQLITE_IOERR_READ},
    // SQLite reads the missing bytes as zeros, as it does after the end of a file.
    {"ReadIsShort", DiskCall::kRead, SQLITE_IOERR_SHORT_READ},
    {"WriteFails", DiskCall::kWrite, SQLITE_IOERR_WRITE},
    {"DiskIsFull", DiskCall::kWrite, SQLITE_FULL},  // after half of what is to be written
    {"TruncateFails", DiskCall::kTruncate, SQLITE_IOERR_TRUNCATE},
    {"SyncFails", DiskCall::kSync, SQLITE_IOERR_FSYNC},
    {"FileSizeFails", DiskCall::kFileSize, SQLITE_IOERR_FSTAT},
    {"LockIsBusy", DiskCall::kLock, SQLITE_BUSY},
    {"LockFails", DiskCall::kLock, SQLITE_IOERR_LOCK},
    {"UnlockFails", DiskCall::kUnlock, SQLITE_IOERR_UNLOCK},
    {"CheckReservedLockFails", DiskCall::kCheckReservedLock, SQLITE_IOERR_CHECKRESERVEDLOCK},
    {"FileControlFails", DiskCall::kFileControl, SQLITE_IOERR},
    {"ShmMapFails", DiskCall::kShmMap, SQLITE_IOERR_SHMMAP},
    {"ShmLockIsBusy", DiskCall::kShmLock, SQLITE_BUSY},
    {"ShmLockFails", DiskCall::kShmLock, SQLITE_IOERR_SHMLOCK},
};

// A call to fail: the nth of its kind and, unless `once`, all later ones.
struct Fault {
  Failure failure;
  uint64_t nth;
  bool once;
};

class FaultyDisk : public VfsShim {
 public:
  void arm(const std::vector<Fault>& faults) {
    faults_ = faults;
    calls_ = 0;
    fired_ = 0;
  }
  void disarm() { faults_.clear(); }

  // Since arm(): the number of calls of the chosen kinds, and of those that failed.
  uint64_t calls() const { return calls_; }
  uint64_t fired() const { return fired_; }

  int open(const char* path, ShimFile& file, int flags, int* out) override {
    if (const int code = failing(DiskCall::kOpen)) return code;
    return VfsShim::open(path, file, flags, out);
  }
  int remove(const char* path, int sync_folder) override {
    if (const int code = failing(DiskCall::kRemove)) return code;
    return VfsShim::remove(path, sync_folder);
  }
  int access(const char* path, int flags, int* result) override {
    if (const int code = failing(DiskCall::kAccess)) return code;
    return VfsShim::access(path, flags, result);
  }
  // SQLite waits up to ten seconds for locks of the shared memory. Skip the wait.
  int sleep(int microseconds) override { return microseconds; }
  int read(ShimFile& file, void* data, int size, int64_t offset) override {
    const int code = failing(DiskCall::kRead);
    if (code == SQLITE_OK) return VfsShim::read(file, data, size, offset);
    if (code == SQLITE_IOERR_SHORT_READ) {
      VfsShim::read(file, data, size, offset);
      const int half = size / 2;
      std::memset(static_cast<char*>(data) + half, 0, static_cast<std::size_t>(size - half));
    }
    return code;
  }
  int write(ShimFile& file, const void* data, int size, int64_t offset) override {
    const int code = failing(DiskCall::kWrite);
    if (code == SQLITE_OK) return VfsShim::write(file, data, size, offset);
    if (code == SQLITE_FULL) VfsShim::write(file, data, size / 2, offset);
    return code;
  }
  int truncate(ShimFile& file, int64_t size) override {
    if (const int code = failing(DiskCall::kTruncate)) return code;
    return VfsShim::truncate(file, size);
  }
  int sync(ShimFile& file, int flags) override {
    if (const int code = failing(DiskCall::kSync)) return code;
    return VfsShim::sync(file, flags);
  }
  int file_size(ShimFile& file, int64_t* size) override {
    if (const int code = failing(DiskCall::kFileSize)) return code;
    return VfsShim::file_size(file, size);
  }
  int lock(ShimFile& file, int level) override {
    if (const int code = failing(DiskCall::kLock)) return code;
    return VfsShim::lock(file, level);
  }
  int unlock(ShimFile& file, int level) override {
    const int rc = VfsShim::unlock(file, level);
    const int code = failing(DiskCall::kUnlock);
    return code == SQLITE_OK ? rc : code;
  }
  int check_reserved_lock(ShimFile& file, int* result) override {
    if (const int code = failing(DiskCall::kCheckReservedLock)) return code;
    return VfsShim::check_reserved_lock(file, result);
  }
  int file_control(ShimFile& file, int op, void* argument) override {
    if (const int code = failing(DiskCall::kFileControl)) return code;
    return VfsShim::file_control(file, op, argument);
  }
  int shm_map(ShimFile& file, int page, int size, int extend, void volatile** memory) override {
    if (const int code = failing(DiskCall::kShmMap)) return code;
    return VfsShim::shm_map(file, page, size, extend, memory);
  }
  // Releasing a lock never fails.
  int shm_lock(ShimFile& file, int offset, int count, int flags) override {
    const bool takes = (flags & SQLITE_SHM_LOCK) != 0;
    if (const int code = takes ? failing(DiskCall::kShmLock) : SQLITE_OK) return code;
    return VfsShim::shm_lock(file, offset, count, flags);
  }

 private:
  // The code that this call has to fail with, or 0.
  int failing(DiskCall call) {
    for (Fault& fault : faults_) {
      if (fault.failure.call != call) continue;
      ++calls_;
      if (fault.nth == 0 || --fault.nth > 0) continue;
      if (!fault.once) fault.nth = 1;  // the next one fails as well
      ++fired_;
      return fault.failure.code;
    }
    return SQLITE_OK;
  }

  std::vector<Fault> faults_;  // a fault with an `nth` of 0 is over
  uint64_t calls_ = 0;
  uint64_t fired_ = 0;
};

void PrintTo(const Failure& failure, std::ostream* out) {
  *out << failure.name;
}

bool lies(const Failure& failure) {
  return failure.code == SQLITE_IOERR_SHORT_READ;
}

class FaultTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }
  static void TearDownTestSuite() {
    print("faults", tally_);
    tally_ = Tally();
  }

  FaultTest() { set_clock(1000000); }

  // Makes the call with these faults; returns the number of calls that failed.
  uint64_t run(const Call& call, const std::vector<Fault>& faults) {
    const bool false_data = std::any_of(faults.begin(), faults.end(),
                                        [](const Fault& fault) { return lies(fault.failure); });
    const Outcome outcome = scene_.run(
        call, [&] { disk_.arm(faults); }, [&] { disk_.disarm(); },
        false_data ? Certain::kNoRows : Certain::kEverything);
    ++tally_.points;
    if (disk_.fired() > 0) ++tally_.faults;
    if (!outcome.complaint.empty()) {
      ++tally_.lost;
      std::string all;
      for (const Fault& fault : faults) {
        all += std::string(", ") + fault.failure.name + " at call " + std::to_string(fault.nth) +
               (fault.once ? " once" : " and from then on");
      }
      ADD_FAILURE() << call.name << all << ": " << outcome.complaint;
    }
    return disk_.fired();
  }

  // The number of calls of this kind that are made when none fails.
  uint64_t calls_of(const Call& call, const Failure& failure) {
    run(call, {{failure, 0, true}});
    return disk_.calls();
  }

  FaultyDisk disk_;
  Scene scene_;
  static inline Tally tally_;
};

// Every call of one kind in turn, in every operation.
class EveryFault : public FaultTest, public testing::WithParamInterface<Failure> {};

TEST_P(EveryFault, LosesNothingAcknowledged) {
  const uint64_t share = bound("CORVAN_FAULT_SHARE", 8, 1);
  std::mt19937_64 random(setting("CORVAN_FAULT_SEED", 1));
  for (const Call& call : scene_.calls()) {
    const uint64_t calls = calls_of(call, GetParam());
    for (const bool once : {true, false}) {
      // Ends when no call has failed: `nth` is then beyond the last call.
      for (uint64_t nth = 1, fired = 1; fired > 0; ++nth) {
        if (nth <= calls && random() % share != 0) continue;
        fired = run(call, {{GetParam(), nth, once}});
        ASSERT_LT(tally_.lost, 20U) << "more of the same is left out";
      }
    }
  }
}

std::string failure_name(const testing::TestParamInfo<Failure>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Disk, EveryFault, testing::ValuesIn(kFailures), failure_name);

// Two calls of any kinds, in any operation.
class TwoFaults : public FaultTest {};

TEST_F(TwoFaults, LoseNothingAcknowledged) {
  const uint64_t count = bound("CORVAN_FAULT_PAIRS", 500, 10000);
  const uint64_t seed = setting("CORVAN_FAULT_SEED", 1);
  const TimeLimit limit;
  std::mt19937_64 random(seed);
  const auto below = [&random](std::size_t end) {
    return static_cast<std::size_t>(random() % end);
  };
  const auto fault = [&] {
    return Fault{kFailures[below(std::size(kFailures))], 1 + below(1 + below(40)), below(3) > 0};
  };
  for (uint64_t i = 0; limit.given() ? !limit.passed() : i < count; ++i) {
    const Call& call = scene_.calls()[below(scene_.calls().size())];
    run(call, {fault(), fault()});
    ASSERT_FALSE(HasFailure()) << "CORVAN_FAULT_SEED=" << seed << ", pair " << i;
  }
}

}  // namespace
}  // namespace corvan_test
