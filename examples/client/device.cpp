#include "examples/client/device.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <utility>

#include "examples/client/searching.h"

namespace example {

namespace {

constexpr auto kKind = Corvan::CV_PRIVATE;
constexpr const char* kText = "CV:TxtMsg";

// The states of an own message.
constexpr int32_t kSent = 0;
constexpr int32_t kBeingSent = 1;
constexpr int32_t kFailed = 2;
constexpr int32_t kSeen = 3;

// A random number for an own message. A counter would restart with the process, and would repeat
// the numbers of the user's other devices.
int64_t new_client_uid() {
  std::random_device random;
  const uint64_t bits = (uint64_t{random()} << 32) | random();
  return static_cast<int64_t>((bits >> 1) | 1);  // above 0
}

}  // namespace

Device::Device(std::string folder, std::string user, std::string peer, Server* server,
               Network* network)
    : store_(Corvan::CvDbSingleton::get_instance()),
      folder_(std::move(folder)),
      user_(std::move(user)),
      peer_(std::move(peer)),
      server_(server),
      network_(network) {}

bool Device::start() {
  turn_ = {};
  std::filesystem::create_directories(std::filesystem::u8path(folder_));
  refused_.clear();
  std::ifstream kept(std::filesystem::u8path(folder_ + "/refused"), std::ios::binary);
  for (int64_t client_uid = 0; kept >> client_uid;) refused_.insert(client_uid);

  const cvrtc::Pathname folder(folder_ + "/");
  if (!store_->init_open_db(folder, "", user_)) return false;
  // If the store is closed now, the file was damaged and has been deleted. Create a new one and
  // fill it from the server's history.
  if (store_->get_pragma("select 1") != 1 && !store_->init_open_db(folder, "", user_)) return false;
  return store_->update_sent_status(
      0, kFailed);  // no message has the id 0: tests whether the file is writable
}

void Device::stop() {
  store_->close_db();
}

void Device::reconnect() {
  constexpr size_t kPage = 5;
  int64_t mark = 0;
  if (!store_->get_sync_time(&mark, nullptr)) return;
  while (!network_->loses()) {
    const auto page = server_->letters_after(mark, kPage);
    // If a page fails, the mark stays, and the next turn fetches the page again.
    if (page.empty() || !save_fetched(page)) break;
    mark = page.back().time;
  }
  apply_receipt(server_->receipt_of(peer_));

  // Opening the store marked every message being sent as failed. Resend those that the history has
  // not completed, under their own numbers, by which the server recognises them.
  for (const auto& message : all_messages()) {
    if (message.is_receive_ || message.sent_status_ != kFailed) continue;
    const int64_t client_uid = client_uid_of(message.msg_id_);
    if (refused_.count(client_uid) > 0) continue;
    store_->update_sent_status(message.msg_id_, kBeingSent);
    ++turn_.sent_again;
    post(message.msg_id_, client_uid, message.content_);
  }
}

// Must not call an operation that is itself one transaction: it would commit this one.
bool Device::save_fetched(const std::vector<Letter>& page) {
  if (!store_->start_transaction()) return false;
  // Move the marks first: if SQLite rolls back in the middle, each later write is stored on its
  // own, and a mark must not be. Received and own messages come in one stream here, so both marks
  // move.
  const int64_t mark = page.back().time;
  bool whole = move_mark(mark, true) && move_mark(mark, false);
  complete_own(page);
  for (const auto& letter : page) {
    if (!whole) break;
    ++turn_.fetched;
    // An own message is completed by now, unless the store was lost or another device sent it.
    if (letter.sender == user_ && store_->is_message_exist(letter.uid)) continue;
    // With insert_only a message older than the conversation is counted as unread, but does not
    // move the conversation or become its newest message. Messages already received live are
    // refused.
    whole = count_saved(save(letter, true), letter);
  }
  if (!whole) {
    store_->execute_none_query("rollback transaction");
    return false;
  }
  settle();
  return store_->commit_transaction();
}

// Returns whether the mark is now at `time` or later. set_sync_time() also returns false if the
// mark was already there.
bool Device::move_mark(int64_t time, bool is_receive) {
  if (store_->set_sync_time(time, is_receive)) return true;
  int64_t received = 0;
  int64_t own = 0;
  return store_->get_sync_time(&received, &own) && (is_receive ? received : own) >= time;
}

int64_t Device::save(const Letter& letter, bool insert_only) {
  const bool own = letter.sender == user_;
  // Ignore the peer's numbers: a message with a number that the peer reused would be refused.
  const int64_t client_uid = own ? letter.client_uid : 0;
  return store_->save_message(peer_, kKind, kText, letter.sender, letter.text, !own, kSent, 0,
                              false, letter.time, client_uid, letter.uid, false, insert_only, !own);
}

// Counts the result of a save. Returns false if it failed; an id of -1 can also mean a duplicate.
bool Device::count_saved(int64_t id, const Letter& letter) {
  if (id > 0) {
    ++turn_.stored;
    return true;
  }
  if (!store_->is_message_exist(letter.uid)) return false;
  ++turn_.repeated;
  return true;
}

// Adds the server's id and time to own messages whose answer was lost.
void Device::complete_own(const std::vector<Letter>& page) {
  std::vector<Corvan::UpdateValue> own;
  for (const auto& letter : page) {
    // Without a number the lookup would match any own message without one.
    if (letter.sender != user_ || letter.client_uid <= 0) continue;
    Corvan::UpdateValue value;
    value.session_id_ = peer_;
    value.session_type_ = kKind;
    value.sender_ = user_;
    value.client_uid_ = letter.client_uid;
    value.server_uid_new_ = letter.uid;
    value.sent_time_ = letter.time;
    own.push_back(value);
  }
  store_->is_message_exist(own);           // finds the stored ones
  store_->set_send_time_for_dup_msg(own);  // completes those without a server id
}

// Points the conversation at its newest message. The conversation's time can be later than that
// message if the client's clock was ahead of the server's.
void Device::settle() {
  int64_t newest = -1;
  int64_t time = 0;
  if (store_->get_message_latestid(peer_, kKind, newest, time)) {
    store_->set_message_latestid(peer_, kKind, newest, time);
  }
}

void Device::receive_events() {
  for (const auto& event : network_->carry(server_->take_events(user_))) {
    switch (event.kind) {
      case Event::kLetter:
        take_letter(event.letter);
        break;
      case Event::kAnswer:
        take_answer(own_message(event.answer.client_uid), event.answer);
        break;
      case Event::kReceipt:
        apply_receipt(event.receipt);
        break;
    }
  }
}

void Device::take_letter(const Letter& letter) {
  // A plain save makes its message the conversation's newest one whatever its time, so late
  // messages are saved with insert_only. Own messages are not, because only a plain save looks for
  // the number. The sync marks stay: earlier messages may have been dropped and must still be
  // fetched.
  const bool own = letter.sender == user_;
  int64_t newest = 0;
  store_->get_max_time(newest, kKind, peer_, 2);
  const bool late = !own && letter.time <= newest;
  const int64_t id = save(letter, late);
  count_saved(id, letter);  // the history will bring a failed one again
  if (own) {
    settle();
    apply_receipt(0);
  }
  if (id > 0 && late) ++turn_.late;
}

void Device::take_answer(int64_t msg_id, const Answer& answer) {
  Corvan::MessageResponse message;
  message.msg_id_ = msg_id;
  // A repeated answer would turn "seen" back into "sent".
  if (!store_->get_message_by_id(message) || !message.server_uid_.empty()) return;
  if (answer.fail_reason != 0) keep_refusal(answer.client_uid);
  store_->set_send_time(msg_id, answer.time, answer.uid, peer_, kKind, answer.fail_reason);
  settle();
  apply_receipt(0);
}

// The store does not record refusals. Without this list every start would resend refused messages
// like unanswered ones.
void Device::keep_refusal(int64_t client_uid) {
  refused_.insert(client_uid);
  std::ofstream(std::filesystem::u8path(folder_ + "/refused"), std::ios::binary | std::ios::app)
      << client_uid << "\n";
}

void Device::apply_receipt(int64_t time) {
  // A later receipt covers only messages sent after the stored one. Apply the stored one again for
  // messages that were acknowledged after it arrived.
  int64_t known = 0;
  store_->get_receipt_time(peer_, kKind, known);
  if (known > 0) store_->update_message_receipt_status(peer_, kKind, known);
  if (time > known) store_->update_message_receipt_status(peer_, kKind, time);
}

void Device::send(const std::string& text) {
  ++turn_.sent;
  const int64_t client_uid = new_client_uid();
  const int64_t id =
      store_->save_message(peer_, kKind, kText, user_, text, false, kBeingSent, 1, false,
                           server_->now(), client_uid, "", false, false, false);
  if (id < 0) return;  // not stored: a client would leave the text in the input field
  post(id, client_uid, text);
}

void Device::post(int64_t msg_id, int64_t client_uid, const std::string& text) {
  if (network_->loses()) {  // the message
    ++turn_.unanswered;
    return;
  }
  const Answer answer = server_->post(user_, peer_, client_uid, text);
  if (network_->loses()) {  // its answer
    ++turn_.unanswered;
    return;
  }
  take_answer(msg_id, answer);
}

void Device::read() {
  // clear_unread() skips late messages from before the last reading, so mark each one first. This
  // also updates the counters.
  for (const auto& message : all_messages()) {
    if (message.is_receive_ && message.read_status_ == 0) {
      store_->set_read_status(message.msg_id_, 1);
    }
  }
  store_->clear_unread(peer_, kKind);
  int64_t newest = 0;
  store_->get_max_time(newest, kKind, peer_, 1);
  if (newest > 0 && !network_->loses()) server_->take_receipt(user_, peer_, newest);
}

int64_t Device::own_message(int64_t client_uid) {
  Corvan::UpdateValue value;
  value.session_id_ = peer_;
  value.session_type_ = kKind;
  value.sender_ = user_;
  value.client_uid_ = client_uid;
  std::vector<Corvan::UpdateValue> values = {value};
  store_->is_message_exist(values);
  return values.front().msg_id_;
}

int64_t Device::client_uid_of(int64_t msg_id) {
  int64_t client_uid = 0;
  store_->get_client_uid(msg_id, client_uid);
  return client_uid;
}

// Reads a single page. The next page would skip messages that have the same time as the last
// message of this one.
Device::Messages Device::all_messages() {
  int32_t count = 0;
  store_->get_message_count(peer_, kKind, count);
  Messages all;
  store_->get_history_message_by_time(peer_, kKind, "", 0, count, all, true);
  return all;
}

std::vector<std::string> Device::differences() {
  std::vector<std::string> found;
  const auto stored = all_messages();  // newest first
  auto letters = server_->letters();
  std::reverse(letters.begin(), letters.end());

  auto letter = letters.begin();
  for (const auto& message : stored) {
    const std::string name = "message " + std::to_string(message.msg_id_);
    if (!message.is_receive_ && refused_.count(client_uid_of(message.msg_id_)) > 0) {
      if (message.sent_status_ != kFailed)
        found.push_back(name + " was refused but is not marked as failed");
      continue;
    }
    if (letter == letters.end() || letter->uid != message.server_uid_ ||
        letter->time != message.sent_time_ || letter->sender != message.sender_ ||
        letter->text != message.content_) {
      found.push_back(name + " does not match the server's next one");
      return found;
    }
    const bool seen = letter->time <= server_->receipt_of(peer_);
    if (!message.is_receive_ && message.sent_status_ != (seen ? kSeen : kSent)) {
      found.push_back(name + " does not have the state that follows from the peer's receipt");
    }
    ++letter;
  }
  if (letter != letters.end()) found.push_back(letter->uid + " is not stored");

  return found;
}

std::vector<std::string> Device::contradictions() {
  std::vector<std::string> found;
  const auto stored = all_messages();
  if (stored.empty()) return found;
  Corvan::SessionInfo conversation;
  conversation.session_id_ = peer_;
  conversation.session_type_ = kKind;
  if (!store_->get_session(conversation)) return {"the conversation is missing"};
  if (conversation.message_.msg_id_ != stored.front().msg_id_) {
    found.emplace_back("the conversation does not point at its newest message");
  }
  const auto unread = std::count_if(stored.begin(), stored.end(), [](const auto& message) {
    return message.is_receive_ && message.read_status_ == 0;
  });
  if (conversation.unread_count_ != unread) {
    found.emplace_back("the unread counter differs from the number of unread messages");
  }
  return found;
}

std::vector<std::string> Device::search_differences() {
  return example::search_differences(folder_, all_messages());
}

std::string Device::summary() const {
  std::ostringstream text;
  text << "fetched " << turn_.fetched << ", stored " << turn_.stored << " received (" << turn_.late
       << " late), refused " << turn_.repeated << " duplicates, sent " << turn_.sent << ", resent "
       << turn_.sent_again << ", unanswered " << turn_.unanswered;
  return text.str();
}

}  // namespace example
