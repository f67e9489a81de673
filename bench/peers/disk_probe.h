// Measures a sync on the stores' disk. It takes most of the time of a small transaction.

#ifndef BENCH_PEERS_DISK_PROBE_H_
#define BENCH_PEERS_DISK_PROBE_H_

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <vector>

#include "bench/support/timing.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

class DiskProbe {
 public:
  DiskProbe() : file_(open(folder_.file("probe").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)) {
    if (file_ < 0) throw std::runtime_error("no file to probe the disk with");
  }
  DiskProbe(const DiskProbe&) = delete;
  DiskProbe& operator=(const DiskProbe&) = delete;
  ~DiskProbe() { close(file_); }

  // Times appending and syncing a page.
  void measure() {
    const std::array<char, 4096> page = {};
    times_.push_back(time_of([&] {
      if (write(file_, page.data(), page.size()) < 0 || fdatasync(file_) != 0) {
        throw std::runtime_error("the disk cannot be probed");
      }
    }));
  }

  const std::vector<double>& times() const { return times_; }

 private:
  const corvan_test::TemporaryFolder folder_;
  const int file_;
  std::vector<double> times_;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_DISK_PROBE_H_
