// A small program, with WITH_STORE the same one with a store, and with WITH_SEARCH also the search:
// scripts/size.sh compares them.

#include <iostream>
#include <string>
#include <vector>

#if defined(WITH_SEARCH)
#include "addons/search/message_search.h"
#endif
#if defined(WITH_STORE)
#include "db/cv_db_singleton.h"

namespace {

int use_store(const std::string& folder) {
  auto* store = Corvan::CvDbSingleton::get_instance();
  if (!store->init_open_db(cvrtc::Pathname(folder), "", "me")) return 1;
  store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "Hello!", true, 0, 0, false, 0,
                      0, "server-id-1", false, false, true);
  std::vector<Corvan::SessionInfo> list;
  store->get_session_list_by_page({Corvan::CV_GROUP}, 0, 20, list);
  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, true);
  for (const auto& s : list) std::cout << s.session_id_ << ": " << s.unread_count_ << '\n';
  for (const auto& m : page) std::cout << m.sender_ << ": " << m.content_ << '\n';
#if defined(WITH_SEARCH)
  Corvan::MessageSearch search{cvrtc::Pathname(folder)};
  search.catch_up(std::chrono::milliseconds(20));
  for (const auto& hit : search.find("hello").hits) search.changed(hit.id);
  search.sweep(std::chrono::milliseconds(20));
#endif
  Corvan::CvDbSingleton::delete_instance();
  return 0;
}

}  // namespace
#endif

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  for (const auto& word : words) std::cout << word << '\n';
#if defined(WITH_STORE)
  return use_store(words.back());
#endif
}
