#include "base/timestamp.h"

#include <algorithm>
#include <atomic>
#include <chrono>

namespace Corvan {

int64_t Timestamp() {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  using std::chrono::system_clock;

  static std::atomic<int64_t> latest{0};
  const int64_t now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  int64_t previous = latest.load();
  while (previous < now && !latest.compare_exchange_weak(previous, now)) {
  }
  return std::max(previous, now);
}

}  // namespace Corvan
