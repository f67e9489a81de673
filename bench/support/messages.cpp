#include "bench/support/messages.h"

#include <array>
#include <cstdio>

#include "db/cv_db_singleton.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;

constexpr std::array<const char*, 10> kWords = {"meeting", "tomorrow", "yes",   "the report",
                                                "好的",    "明天见",   "lunch", "see you there",
                                                "thanks",  "😀"};

// The conversation with this number; number 0 is the largest conversation.
std::string conversation_id(std::uint64_t number) {
  return "conversation-" + std::to_string(100000 + number);
}

Corvan::SessionType conversation_type(std::uint64_t number) {
  if (number % 50 == 49) return Corvan::CV_SYSTEM;
  return number % 3 == 0 ? Corvan::CV_GROUP : Corvan::CV_PRIVATE;
}

}  // namespace

MessageStream::MessageStream(std::uint64_t seed, int conversations, int burst)
    : random_(seed),
      conversations_(static_cast<std::uint64_t>(conversations)),
      burst_(static_cast<std::uint64_t>(burst)) {}

std::string MessageStream::largest_id() {
  return conversation_id(0);
}

void MessageStream::choose_conversation() {
  if (below(10) == 0) {
    conversation_ = 0;
  } else if (below(4) == 0) {
    conversation_ = below(conversations_ / 20 + 1);
  } else {
    conversation_ = below(conversations_);
  }
}

MessageResponse MessageStream::next() {
  if (below(burst_) == 0) choose_conversation();
  MessageResponse m;
  m.session_id_ = conversation_id(conversation_);
  m.session_type_ = conversation_type(conversation_);
  m.is_receive_ = below(10) < 7;
  m.sender_ = m.is_receive_ ? "user-" + std::to_string(below(1000)) : "me";
  m.object_name_ = below(10) == 0 ? "CV:ImgMsg" : "CV:TxtMsg";
  for (std::uint64_t words = 3 + below(12); words > 0; --words) {
    m.content_ += kWords[below(kWords.size())];
    m.content_ += ' ';
  }
  time_ += 1 + static_cast<int64_t>(below(1000));
  m.sent_time_ = time_;
  m.client_uid_ = 1 + static_cast<int64_t>(random_() >> 2U);
  std::array<char, 32> uid = {};
  std::snprintf(uid.data(), uid.size(), "%016llX%04X",
                static_cast<unsigned long long>(random_()),  // NOLINT(google-runtime-int)
                static_cast<unsigned>(below(0x10000)));
  m.server_uid_ = uid.data();
  const bool covered = !m.is_receive_ && m.session_type_ == Corvan::CV_PRIVATE && below(10) < 8;
  m.sent_status_ = covered ? 3 : 0;
  m.read_status_ = 1;
  m.msg_id_ = -1;
  m.is_store_ = true;
  return m;
}

std::vector<std::unique_ptr<MessageResponse>> MessageStream::batch(int count) {
  std::vector<std::unique_ptr<MessageResponse>> messages;
  for (int i = 0; i < count; ++i) messages.push_back(std::make_unique<MessageResponse>(next()));
  return messages;
}

int64_t save_live(const MessageResponse& m) {
  return Corvan::CvDbSingleton::get_instance()->save_message(
      m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_, m.is_receive_,
      m.sent_status_, m.read_status_, false, m.sent_time_, m.client_uid_, m.server_uid_, false,
      false, m.is_receive_);
}

}  // namespace corvan_bench
