#include "bench/peers/workload.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace corvan_bench {

namespace {

constexpr int64_t kFirstTime = 1'700'000'000'000;
constexpr int64_t kBetweenMessages = 1000;

}  // namespace

Workload::Workload(int64_t messages, int32_t conversations, int64_t largest_mentions)
    : ids_(static_cast<std::size_t>(conversations)),
      mention_every_(std::max<int64_t>(1, messages / 10 / largest_mentions)) {}

std::vector<Delivery> Workload::next(int64_t count) {
  std::vector<Delivery> deliveries;
  for (int64_t i = 1; i <= count; ++i) {
    const bool in_largest = i % 10 == 0;
    const auto other = static_cast<int32_t>(1 + random(conversations() - 1));
    deliveries.push_back(make(in_largest ? kLargest : other, random(10) == 0));
    if (i % 100 == 0) deliveries.push_back(repeat());
  }
  return deliveries;
}

Delivery Workload::being_sent() {
  Delivery delivery = make(kLargest, true);
  delivery.message.sent_status_ = kSending;
  return delivery;
}

ConversationName Workload::name(int32_t conversation) const {
  if (conversation % 2 == 0) return {"group-" + std::to_string(conversation), Corvan::CV_GROUP};
  return {"user-" + std::to_string(conversation), Corvan::CV_PRIVATE};
}

int64_t Workload::random(int64_t below) {
  return static_cast<int64_t>(random_() % static_cast<uint64_t>(below));
}

// Random like a server's uids, so that indexes on it are filled in random order.
std::string Workload::random_uid() {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%016llX", static_cast<unsigned long long>(random_()));
  return text.data();
}

// 20 to 140 letters and blanks. They are less repetitive than natural language, so that compression
// gains no more than it would with real messages.
std::string Workload::random_text() {
  static constexpr std::string_view kLetters = "    eeeettaaooiinnsshhrrddllcumwfgypbvk";
  std::string text;
  const int64_t length = 20 + random(121);
  for (int64_t i = 0; i < length; ++i) {
    text += kLetters[static_cast<std::size_t>(random(static_cast<int64_t>(kLetters.size())))];
  }
  return text;
}

Delivery Workload::make(int32_t conversation, bool own) {
  std::vector<int64_t>& ids = ids_[static_cast<std::size_t>(conversation)];
  const auto number = static_cast<int64_t>(delivered_.size()) + 1;
  const ConversationName place = name(conversation);
  const bool group = place.kind == Corvan::CV_GROUP;

  Delivery delivery;
  delivery.expected_id = number;
  MessageResponse& m = delivery.message;
  m.session_id_ = place.id;
  m.session_type_ = place.kind;
  m.object_name_ = "CV:TxtMsg";
  m.content_ = R"({"content":")" + random_text() + R"("})";
  m.is_receive_ = !own;
  m.read_status_ = own ? 1 : 0;
  m.sent_time_ = kFirstTime + number * kBetweenMessages;
  m.server_uid_ = random_uid();
  if (own) {
    m.sender_ = kUser;
    m.client_uid_ = number;
  } else {
    m.sender_ = group ? "user-" + std::to_string(random(200)) : place.id;
    ++unread_;
    if (group) {
      const auto index = static_cast<int64_t>(ids.size());
      delivery.mention = conversation == kLargest ? index % mention_every_ == 0 : random(50) == 0;
    }
  }
  ids.push_back(number);
  delivered_.push_back(m);
  return delivery;
}

Delivery Workload::repeat() {
  Delivery delivery;
  delivery.message =
      delivered_[static_cast<std::size_t>(random(static_cast<int64_t>(delivered_.size())))];
  delivery.expected_id = -1;
  if (!delivery.message.is_receive_) delivery.message.server_uid_ = random_uid();
  return delivery;
}

}  // namespace corvan_bench
