// A client that searches: it saves a few messages, indexes them, finds them, highlights what
// matched, edits a message and deletes one.

#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "addons/search/message_search.h"
#include "db/cv_db_singleton.h"

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchStatus;

const cvrtc::Pathname folder("store/");

CvDbSingleton* open_empty_store() {
  std::filesystem::remove_all("store");
  std::filesystem::create_directory("store");
  CvDbSingleton* store = CvDbSingleton::get_instance();
  return store->init_open_db(folder, "", "me") ? store : nullptr;
}

// Received in the group "team". Returns the message's id.
int64_t save(CvDbSingleton* store, const std::string& text, int64_t time) {
  return store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", text, true, 0, 0, false,
                             time, 0, "server-" + std::to_string(time), false, false, true);
}

std::string content_of(CvDbSingleton* store, int64_t id) {
  Corvan::MessageResponse message;
  message.msg_id_ = id;
  return store->get_message_by_id(message) ? message.content_ : "";
}

// The text with brackets around each part that matches.
std::string highlighted(const std::string& text, const std::string& query) {
  std::string result;
  std::size_t end = 0;
  for (const auto& range : MessageSearch::snippet(text, query)) {
    result +=
        text.substr(end, range.begin - end) + "[" + text.substr(range.begin, range.size) + "]";
    end = range.begin + range.size;
  }
  return result + text.substr(end);
}

// Prints all messages that match, from the newest to the oldest, in pages of two.
bool print_hits(CvDbSingleton* store, MessageSearch& search, const std::string& query) {
  std::cout << query << ":\n";
  SearchOptions options;
  options.limit = 2;
  do {
    const auto results = search.find(query, options);
    if (results.status != SearchStatus::kOk) return false;
    for (const auto& hit : results.hits) {
      std::cout << "  " << highlighted(content_of(store, hit.id), query) << "\n";
    }
    options.before = results.next;
  } while (options.before);
  return true;
}

bool sweep_all(MessageSearch& search) {
  for (;;) {
    const auto work = search.sweep(std::chrono::milliseconds(50));
    if (work.status != SearchStatus::kOk || work.complete) return work.status == SearchStatus::kOk;
  }
}

bool run(CvDbSingleton* store) {
  const int64_t coffee = save(store, "Coffee at noon ☕", 1000);
  const int64_t film = save(store, "今天晚上一起看电影吗？", 2000);
  save(store, "The COFFEEHOUSE has coffee, tea and ｃｏｆｆｅｅ cake", 3000);

  MessageSearch search(folder);
  if (search.catch_up(std::chrono::seconds(1)).messages != 3) return false;
  if (!print_hits(store, search, "coffee") || !print_hits(store, search, "coffeeh*")) return false;
  if (!print_hits(store, search, "电影") || !print_hits(store, search, "☕")) return false;

  store->set_message_content(film, "今天晚上一起吃饭吗？", "CV:TxtMsg");
  store->delete_message(std::vector<int64_t>{coffee});
  if (!print_hits(store, search, "电影") || !print_hits(store, search, "coffee")) return false;
  for (const int64_t id : {film, coffee}) {
    if (search.changed(id) != SearchStatus::kOk) return false;
  }
  if (!print_hits(store, search, "吃饭")) return false;
  return sweep_all(search);  // the old words leave the file
}

}  // namespace

int main() {
  CvDbSingleton* store = open_empty_store();
  const bool is_done = store != nullptr && run(store);
  CvDbSingleton::delete_instance();
  if (is_done) std::cout << "done\n";
  return is_done ? 0 : 1;
}
