// Examples of the most used operations. The reference shows the lines between each pair of "//!
// [name]" markers. The checks after them verify that the example does what it says.
//
// Usage: operations. It recreates the folder "operations-store" in the current one.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace {

using Corvan::CvDbSingleton;

void check(bool condition, const char* what) {
  if (condition) return;
  std::cerr << "operations: check failed: " << what << "\n";
  std::exit(1);
}

void open_store() {
  std::filesystem::remove_all("operations-store");
  std::filesystem::create_directories("operations-store");
  //! [init_open_db]
  auto* store = CvDbSingleton::get_instance();
  const cvrtc::Pathname folder("operations-store/");  // must exist and end with "/"
  bool open = store->init_open_db(folder, "", "me");
  // If the file was damaged, it has been deleted: the call returns true, but the store is closed.
  // The second call creates a new file.
  if (open && store->get_pragma("select 1") != 1) open = store->init_open_db(folder, "", "me");
  //! [init_open_db]
  check(open, "the store opens");
  check(std::filesystem::is_regular_file("operations-store/corvan"), "the file is there");
}

void save_one_message(CvDbSingleton* store) {
  //! [save_message]
  const bool is_receive = true;
  const bool is_mention = true;
  const bool history = false;      // received live
  const bool insert_only = false;  // the conversation moves to it
  const bool is_count = true;      // one more unread message
  const int64_t id = store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "u02",
                                         "Lunch, @me?", is_receive, /*sent_status=*/0,
                                         /*read_status=*/0, is_mention, /*sent_time=*/1000,
                                         /*client_uid=*/0, "srv-1", history, insert_only, is_count);
  if (id < 0 && !store->is_message_exist("srv-1")) std::cout << "could not be stored\n";
  //! [save_message]
  check(id > 0, "the message is stored");
  int32_t unread = 0;
  check(store->get_unread_count("team", Corvan::CV_GROUP, unread) && unread == 1, "it is unread");
}

// Saves a received message to the conversation "team" and returns its id.
int64_t save_received(CvDbSingleton* store, int64_t time, const std::string& uid) {
  return store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "u02", "Text of " + uid, true,
                             0, 0, false, time, 0, uid, false, false, true);
}

void save_in_a_transaction(CvDbSingleton* store) {
  //! [start_transaction]
  bool whole = store->start_transaction();
  for (int64_t i = 2; whole && i <= 30; ++i) {
    const std::string uid = "srv-" + std::to_string(i);
    // A duplicate returns -1, too. Any other -1 is a failure: stop.
    whole = save_received(store, 1000 * i, uid) > 0 || store->is_message_exist(uid);
  }
  if (!whole) store->execute_none_query("rollback transaction");
  whole = whole && store->commit_transaction();  // false: assume that nothing was stored
  //! [start_transaction]
  check(whole, "the transaction is committed");
  int32_t count = 0;
  check(store->get_message_count("team", Corvan::CV_GROUP, count) && count == 30, "30 messages");
}

void move_sync_marks(CvDbSingleton* store) {
  //! [set_sync_time]
  int64_t received = 0;  // both stay 0 if the user has no marks yet
  int64_t sent = 0;
  if (store->get_sync_time(&received, &sent)) {
    // Fetch from the server what is later than `received`. Set the mark in the transaction that
    // stores the messages, before them, so that a rollback of the messages also removes the mark.
    store->set_sync_time(30'000, true);  // false if the mark is already there or later
  }
  //! [set_sync_time]
  check(store->get_sync_time(&received, &sent) && received == 30'000 && sent == 0, "the marks");
}

void send_a_message(CvDbSingleton* store) {
  //! [set_send_time]
  const int32_t being_sent = 1;
  const int64_t client_uid = 7;  // use a random number: it must be unique among the user's messages
  const int64_t id =
      store->save_message("u02", Corvan::CV_PRIVATE, "CV:TxtMsg", "me", "On my way", false,
                          being_sent, 0, false, 40'000, client_uid, "", false, false, false);
  // The server accepts it and returns its id and time:
  store->set_send_time(id, 40'120, "srv-31", "u02", Corvan::CV_PRIVATE, /*fail_reason=*/0);
  // or refuses it: set_send_time(id, 0, "", "u02", Corvan::CV_PRIVATE, 405)
  //! [set_send_time]
  Corvan::MessageResponse message;
  message.msg_id_ = id;
  check(store->get_message_by_id(message), "the message is there");
  check(message.sent_status_ == 0 && message.server_uid_ == "srv-31", "sent and named");
  check(message.sent_time_ == 40'120, "at the server's time");
}

void apply_a_receipt(CvDbSingleton* store) {
  //! [update_message_receipt_status]
  // u02 has read everything up to this time: own messages up to it change from sent to seen.
  const bool applied = store->update_message_receipt_status("u02", Corvan::CV_PRIVATE, 40'120);
  //! [update_message_receipt_status]
  Corvan::MessageResponse message;
  message.server_uid_ = "srv-31";
  check(applied && store->get_message_by_uid(message) && message.sent_status_ == 3, "seen");
}

void show_history(CvDbSingleton* store) {
  //! [get_history_message_by_time]
  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, true);
  const int64_t oldest = page.back().msg_id_;
  page.clear();  // results are appended
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", oldest, 20, page, true);
  for (const auto& message : page) std::cout << message.sender_ << ": " << message.content_ << "\n";
  //! [get_history_message_by_time]
  check(page.size() == 10 && page.back().content_ == "Lunch, @me?", "the last ten of thirty");
}

// Saves an own message to u03 and its live echo. The conversation's time stays that of the first
// save, so it is earlier than its message's.
void send_and_receive_echo(CvDbSingleton* store) {
  for (const int64_t time : {500, 580}) {
    store->save_message("u03", Corvan::CV_PRIVATE, "CV:TxtMsg", "me", "Hello", false, 1, 1, false,
                        time, /*client_uid=*/8, time == 580 ? "srv-32" : "", false, false, false);
  }
}

void show_list(CvDbSingleton* store) {
  //! [get_session_list_by_page]
  const std::vector<Corvan::SessionType> kinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};
  std::vector<Corvan::SessionInfo> list;
  std::vector<Corvan::SessionInfo> page;
  int64_t before = 0;
  do {
    if (!store->get_session_list_by_page(kinds, before, 20, page)) break;
    // Request the next page with the conversations' own times, which can differ from session_time
    // in the entries. A limit of -1 returns all conversations at once.
    before = std::numeric_limits<int64_t>::max();
    for (const auto& entry : page) {
      if (entry.is_top_ != page.back().is_top_) continue;
      int64_t time = 0;
      int64_t latest = 0;
      int32_t unread = 0;
      int32_t mentions = 0;
      store->get_sessiontime(entry.session_id_, entry.session_type_, time, latest, unread,
                             mentions);
      before = std::min(before, time);
    }
    list.insert(list.end(), page.begin(), page.end());
    page.clear();
  } while (before > 0);
  //! [get_session_list_by_page]
  check(list.size() == 3 && list.front().session_id_ == "u02", "three conversations, newest first");
  check(list.back().session_id_ == "u03" && list.back().session_time == 580, "each of them once");
}

void show_badges(CvDbSingleton* store) {
  //! [get_unread_mention_count]
  int32_t unread = 0;
  int32_t mentions = 0;
  store->get_unread_mention_count({}, unread, mentions);  // {}: all kinds of conversation
  std::cout << unread << " unread, " << mentions << " of them mention you\n";
  //! [get_unread_mention_count]
  check(unread == 30 && mentions == 1, "the counters");
}

void read_one_message(CvDbSingleton* store) {
  Corvan::MessageResponse message;
  message.server_uid_ = "srv-1";
  check(store->get_message_by_uid(message), "the message is there");
  const int64_t id = message.msg_id_;
  //! [set_read_status]
  const bool found = store->set_read_status(id, 1);  // also updates the conversation's counters
  //! [set_read_status]
  int32_t unread = 0;
  int32_t mentions = 0;
  store->get_unread_mention_count({}, unread, mentions);
  check(found && unread == 29 && mentions == 0, "both counters are lower by one");
}

void read_a_conversation(CvDbSingleton* store) {
  //! [clear_unread]
  // The user has opened the conversation.
  const bool read = store->clear_unread("team", Corvan::CV_GROUP);
  //! [clear_unread]
  int32_t unread = -1;
  check(read && store->get_total_unread_count(unread) && unread == 0, "nothing is unread");
}

void delete_messages(CvDbSingleton* store) {
  const int64_t newest = store->get_max_message_id(Corvan::CV_GROUP, "team", 2);
  //! [delete_message]
  // Also updates the counters and the newest message of the affected conversations.
  const bool deleted = store->delete_message({newest});
  //! [delete_message]
  int32_t count = 0;
  store->get_message_count("team", Corvan::CV_GROUP, count);
  check(deleted && count == 29, "one message fewer");
}

}  // namespace

int main() {
  open_store();
  auto* store = CvDbSingleton::get_instance();
  save_one_message(store);
  save_in_a_transaction(store);
  move_sync_marks(store);
  send_a_message(store);
  apply_a_receipt(store);
  show_history(store);
  send_and_receive_echo(store);
  show_list(store);
  show_badges(store);
  read_one_message(store);
  read_a_conversation(store);
  delete_messages(store);
  CvDbSingleton::delete_instance();
  std::filesystem::remove_all("operations-store");
}
