// The thread that opens transactions and pages through the list.

#ifndef TESTS_THREADS_DRIVER_H_
#define TESTS_THREADS_DRIVER_H_

#include <cstdint>
#include <string>

#include "tests/threads/keyed_messages.h"

namespace corvan_test {

// Calls the operations that only one thread may call.
class Driver {
 public:
  Driver(Corvan::CvDbSingleton& store, uint64_t run)
      : store_(store), room_("driver " + std::to_string(run)) {}

  void prepare();

  void work(int64_t round);

  void sync_times(int64_t round);

  // Reads the list in pages of two: pinned conversations first, then by time.
  void page();

  void check(const std::string& file) const;

  const Expected& expected() const { return expected_; }

 private:
  bool store_message(const NewMessage& m);
  int64_t id_of(const std::string& uid);

  Corvan::CvDbSingleton& store_;
  const std::string room_;
  int64_t rounds_ = 0;
  Expected expected_;
};

}  // namespace corvan_test

#endif  // TESTS_THREADS_DRIVER_H_
