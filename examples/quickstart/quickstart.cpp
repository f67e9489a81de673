// A first program: opens a store, receives and sends messages, lists and reads conversations, and
// closes the store. It prints what it does.
//
// Usage: quickstart [FOLDER]. The store is FOLDER/corvan, by default quickstart-store/corvan. A
// second run finds what the first one stored.

#include <cstdint>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace {

using Corvan::CvDbSingleton;

// A message as the network layer delivers it.
struct Received {
  std::string server_uid;  // the server's id, by which duplicates are recognised
  std::string sender;
  std::string text;
  int64_t time;  // milliseconds since the Unix epoch
};

// Stores a live message in the group "team" and counts it as unread.
void receive(CvDbSingleton* store, const Received& message) {
  const int64_t id = store->save_message(
      "team", Corvan::CV_GROUP, "CV:TxtMsg", message.sender, message.text, /*is_receive=*/true,
      /*sent_status=*/0, /*read_status=*/0, /*is_mention=*/false, message.time, /*client_uid=*/0,
      message.server_uid, /*history=*/false, /*insert_only=*/false, /*is_count=*/true);
  const bool there = id > 0 || store->is_message_exist(message.server_uid);
  std::cout << "received " << message.server_uid << ": "
            << (id > 0  ? "stored"
                : there ? "already there"
                        : "could not be stored")
            << "\n";
}

// Stores an own message as being sent, then the server's answer.
void send(CvDbSingleton* store, const std::string& text, int64_t client_uid, int64_t time) {
  const int32_t being_sent = 1;
  const int64_t id = store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "me", text,
                                         /*is_receive=*/false, being_sent, /*read_status=*/1,
                                         /*is_mention=*/false, time, client_uid, /*server_uid=*/"",
                                         /*history=*/false, /*insert_only=*/false,
                                         /*is_count=*/false);
  if (id < 0) {
    std::cout << "sending \"" << text << "\": already there, or could not be stored\n";
    return;
  }
  // Here the network layer sends the message. The server's answer contains its id and time.
  store->set_send_time(id, time + 80, "srv-own-" + std::to_string(client_uid), "team",
                       Corvan::CV_GROUP, /*fail_reason=*/0);
  std::cout << "sending \"" << text << "\": stored, sent, acknowledged\n";
}

// Prints the first 20 conversations.
void show_list(CvDbSingleton* store) {
  std::vector<Corvan::SessionInfo> list;
  store->get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, 20, list);
  for (const auto& entry : list) {
    std::cout << "  " << entry.session_id_ << ": " << entry.unread_count_ << " unread, last \""
              << entry.message_.content_ << "\" by " << entry.message_.sender_ << "\n";
  }
}

// Prints the newest 20 messages of "team", newest first.
void show_history(CvDbSingleton* store) {
  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, /*desc=*/true);
  for (const auto& message : page) {
    std::cout << "  " << message.sent_time_ << " " << message.sender_ << ": " << message.content_
              << "\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : "quickstart-store";

  // The folder must exist; opening creates the file if it is missing. Its path is UTF-8 on every
  // system. The store logs warnings and errors to standard error because no sink is set.
  std::filesystem::create_directories(std::filesystem::u8path(folder));
  auto* store = CvDbSingleton::get_instance();
  if (!store->init_open_db(cvrtc::Pathname(folder + "/"), /*app_key=*/"", /*user_id=*/"me") ||
      store->get_pragma("select 1") != 1) {  // damaged and deleted: the store is closed
    std::cerr << "quickstart: " << folder << "/corvan cannot be opened\n";
    return 1;
  }
  std::cout << "opened " << folder << "/corvan for \"me\"\n";

  receive(store, {"srv-1", "u02", "Is the build green?", 1'700'000'000'000});
  receive(store, {"srv-2", "u03", "Since this morning.", 1'700'000'005'000});
  receive(store, {"srv-2", "u03", "Since this morning.", 1'700'000'005'000});  // delivered twice
  // A client uses random numbers. This one is fixed, so that a second run finds the message.
  send(store, "Thanks!", 1, 1'700'000'009'000);

  std::cout << "conversations:\n";
  show_list(store);
  std::cout << "history of team:\n";
  show_history(store);

  store->clear_unread("team", Corvan::CV_GROUP);
  std::cout << "read; conversations:\n";
  show_list(store);

  CvDbSingleton::delete_instance();  // closes the file
  std::cout << "closed\n";
}
