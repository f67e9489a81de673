#include "bench/write_volume/traffic.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace corvan_bench {

namespace {

constexpr std::uint64_t kUsers = 1000;
constexpr std::uint64_t kMembers = 30;  // per group

}  // namespace

Traffic::Traffic(Shape shape, int conversations) {
  double sum = 0;
  for (int rank = 1; rank <= conversations; ++rank) {
    sum += shape == kZipf ? 1.0 / rank : 1.0;
    sums_.push_back(sum);
  }
}

Corvan::MessageResponse Traffic::next() {
  const std::uint64_t number = conversation();
  const bool group = number % 2 == 0;
  Corvan::MessageResponse m;
  m.session_id_ = (group ? "group-" : "user-") + std::to_string(number);
  m.session_type_ = group ? Corvan::CV_GROUP : Corvan::CV_PRIVATE;
  m.object_name_ = "CV:TxtMsg";
  m.content_ = text();
  m.is_receive_ = below(10) != 0;
  m.sent_time_ = time_ += 1 + static_cast<int64_t>(below(2000));
  m.server_uid_ = server_uid();
  m.msg_id_ = -1;
  m.is_store_ = true;
  if (!m.is_receive_) {
    m.sender_ = "me";
    m.read_status_ = 1;
    m.client_uid_ = 1 + static_cast<int64_t>(random_() >> 2U);
  } else {
    m.sender_ =
        group ? "user-" + std::to_string((number * 7 + below(kMembers)) % kUsers) : m.session_id_;
  }
  return m;
}

// The shares are spread over the numbers, so that large conversations are not neighbours.
std::uint64_t Traffic::conversation() {
  const double place = static_cast<double>(random_() >> 11U) * 0x1p-53 * sums_.back();
  const auto rank = static_cast<std::uint64_t>(
      std::upper_bound(sums_.begin(), sums_.end() - 1, place) - sums_.begin());
  return rank * 617 % sums_.size();
}

std::string Traffic::server_uid() {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%016llX",
                static_cast<unsigned long long>(random_()));  // NOLINT(google-runtime-int)
  return text.data();
}

// 20 to 140 letters in an envelope, as clients store the text of a message.
std::string Traffic::text() {
  std::string letters;
  for (std::uint64_t left = 20 + below(121); left > 0; --left) {
    letters += static_cast<char>('a' + below(26));
  }
  return R"({"content":")" + letters + R"("})";
}

}  // namespace corvan_bench
