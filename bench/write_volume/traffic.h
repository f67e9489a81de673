// The messages whose saves are measured.

#ifndef BENCH_WRITE_VOLUME_TRAFFIC_H_
#define BENCH_WRITE_VOLUME_TRAFFIC_H_

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_bench {

// Messages as a client receives them, in time order, half of the conversations private and half
// groups. One message in ten is the user's own and has a random client uid; received ones have 0.
// Server uids are random. Equal in every run.
class Traffic {
 public:
  enum Shape {
    kUniform,  // each message in any conversation
    kZipf,     // the n-th conversation has 1/n of the messages of the first
  };
  Traffic(Shape shape, int conversations);

  Corvan::MessageResponse next();

 private:
  std::uint64_t below(std::uint64_t count) { return random_() % count; }
  std::uint64_t conversation();
  std::string server_uid();
  std::string text();

  std::mt19937_64 random_{20240229};
  std::vector<double> sums_;  // of the conversations' shares
  int64_t time_ = 1'700'000'000'000;
};

}  // namespace corvan_bench

#endif  // BENCH_WRITE_VOLUME_TRAFFIC_H_
