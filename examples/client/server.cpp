#include "examples/client/server.h"

#include <utility>

namespace example {

namespace {

constexpr int32_t kRefused = 405;

Answer accepted(const Letter& letter) {
  return {letter.client_uid, 0, letter.uid, letter.time};
}

}  // namespace

Answer Server::post(const std::string& sender, const std::string& peer, int64_t client_uid,
                    const std::string& text) {
  for (const auto& letter : letters_) {
    if (letter.sender == sender && letter.client_uid == client_uid) return accepted(letter);
  }
  if (text.rfind("spam", 0) == 0) return {client_uid, kRefused, "", 0};

  const std::string uid = "srv-" + std::to_string(letters_.size() + 1);
  letters_.push_back({uid, sender, client_uid, now(), text});
  const Letter& letter = letters_.back();
  Event to_peer;
  to_peer.letter = letter;
  waiting_[peer].push_back(to_peer);
  Event to_sender;
  to_sender.kind = Event::kAnswer;
  to_sender.answer = accepted(letter);
  waiting_[sender].push_back(to_sender);
  return accepted(letter);
}

void Server::take_receipt(const std::string& reader, const std::string& peer, int64_t time) {
  if (time <= receipts_[reader]) return;
  receipts_[reader] = time;
  Event event;
  event.kind = Event::kReceipt;
  event.receipt = time;
  waiting_[peer].push_back(event);
}

std::vector<Letter> Server::letters_after(int64_t time, size_t limit) const {
  std::vector<Letter> page;
  for (const auto& letter : letters_) {
    if (letter.time > time && page.size() < limit) page.push_back(letter);
  }
  return page;
}

int64_t Server::receipt_of(const std::string& reader) const {
  const auto found = receipts_.find(reader);
  return found == receipts_.end() ? 0 : found->second;
}

std::vector<Event> Server::take_events(const std::string& user) {
  return std::exchange(waiting_[user], {});
}

std::vector<Event> Network::carry(const std::vector<Event>& events) {
  std::vector<Event> carried;
  for (const auto& event : events) {
    if (happens(5)) continue;
    carried.push_back(event);
    if (happens(5)) carried.push_back(event);
  }
  if (calm_) return carried;
  for (size_t i = carried.size(); i > 1; --i) std::swap(carried[i - 1], carried[any(i)]);
  return carried;
}

}  // namespace example
