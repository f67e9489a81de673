#include "bench/search/messages.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;

constexpr std::uint64_t kSeed = 20240601;
constexpr int64_t kMessagesPerConversation = 500;
constexpr std::size_t kBurst = 6;  // consecutive messages of one conversation, on average
constexpr std::size_t kMembers = 40;

constexpr double kMeanLatinWords = 12;
constexpr double kMeanChineseWords = 10;
constexpr std::array<const char*, 6> kEmoji = {" 😀", " 👍", " ❤️", " 🎉", " 😂", " 🙏"};

// At least 1, with this mean.
int length(Random& random, double mean) {
  return 1 + static_cast<int>(-std::log(random.unit()) * (mean - 1));
}

Corvan::SessionType type_of(std::size_t conversation) {
  if (conversation % 50 == 49) return Corvan::CV_SYSTEM;
  return conversation % 3 == 0 ? Corvan::CV_GROUP : Corvan::CV_PRIVATE;
}

}  // namespace

LoggedMessages::LoggedMessages(const std::string& file) : in_(file) {
  if (!in_) throw std::runtime_error("cannot read " + file);
}

bool LoggedMessages::next(MessageResponse& message) {
  std::string line;
  if (!std::getline(in_, line)) return false;
  const auto log = nlohmann::json::parse(line);
  message.session_id_ = log.at("session_id");
  message.session_type_ = static_cast<Corvan::SessionType>(log.at("session_type").get<int>());
  message.object_name_ = log.at("object_name");
  message.sender_ = log.at("sender");
  message.content_ = log.at("content");
  message.is_receive_ = log.at("is_receive");
  message.sent_time_ = log.at("sent_time");
  message.client_uid_ = log.at("client_uid");
  message.server_uid_ = log.at("server_uid");
  return true;
}

GeneratedMessages::GeneratedMessages(int64_t count)
    : count_(count),
      conversations_(
          static_cast<std::size_t>(std::max<int64_t>(20, count / kMessagesPerConversation))),
      random_(kSeed) {}

// The n-th conversation of the order of size has about the share of the square root of n.
void GeneratedMessages::choose_conversation() {
  const double at = random_.unit();
  conversation_ = std::min(conversations_ - 1,
                           static_cast<std::size_t>(at * at * static_cast<double>(conversations_)));
}

bool GeneratedMessages::next(MessageResponse& message) {
  if (made_ == count_) return false;
  ++made_;
  if (random_.below(kBurst) == 0) choose_conversation();
  time_ += 1 + static_cast<int64_t>(random_.below(60'000));
  message.session_type_ = type_of(conversation_);
  message.session_id_ = "conversation-" + std::to_string(100'000 + conversation_);
  message.is_receive_ = random_.chance(0.7);
  message.sender_ = "me";
  if (message.is_receive_) {
    const std::size_t members = message.session_type_ == Corvan::CV_GROUP ? kMembers : 1;
    message.sender_ = "user-" + std::to_string(conversation_ * 7 + random_.below(members));
  }
  message.client_uid_ = message.is_receive_ ? 0 : made_;
  message.server_uid_ = "server-" + std::to_string(scrambled(static_cast<std::uint64_t>(made_)));
  message.sent_time_ = time_;
  const bool is_picture = random_.chance(0.04);
  message.object_name_ = is_picture ? "CV:ImgMsg" : "CV:TxtMsg";
  message.content_ =
      is_picture ? "IMG_" + std::to_string(random_.below(10'000)) + ".jpg" : content();
  return true;
}

bool GeneratedMessages::is_chinese() {
  const bool chinese = scrambled(conversation_) % 10 < 3;
  return random_.chance(0.02) ? !chinese : chinese;
}

std::string GeneratedMessages::content() {
  std::string text = is_chinese() ? chinese_text() : latin_text();
  if (random_.chance(0.03)) text += random_.one_of(kEmoji);
  return text;
}

std::string GeneratedMessages::latin_text() {
  std::string text;
  for (int left = length(random_, kMeanLatinWords); left > 0; --left) {
    text += random_.chance(0.02) ? std::to_string(random_.below(2100))
                                 : latin_word(ranks_.draw(random_));
    if (left > 1) text += random_.chance(0.08) ? ", " : " ";
  }
  if (random_.chance(0.5)) text[0] = static_cast<char>(std::toupper(text[0]));
  if (random_.chance(0.4)) text += random_.chance(0.3) ? '?' : '.';
  return text;
}

std::string GeneratedMessages::chinese_text() {
  std::string text;
  for (int left = length(random_, kMeanChineseWords); left > 0; --left) {
    text += random_.chance(0.02) ? latin_word(ranks_.draw(random_))
                                 : chinese_word(ranks_.draw(random_));
    if (left > 1 && random_.chance(0.15)) text += "，";
  }
  if (random_.chance(0.6)) text += random_.chance(0.3) ? "？" : "。";
  return text;
}

}  // namespace corvan_bench
