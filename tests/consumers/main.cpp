// Opens a store in the working directory, saves a message, reads it back, and prints that and the
// versions of the headers and of the schema. WITH_ENCRYPTION: the store is encrypted if SQLite has
// a cipher; without one, it must be refused before it is opened unencrypted. WITH_SEARCH: the
// message must also be found by a word.

#include <iostream>
#include <vector>

#if defined(WITH_ENCRYPTION)
#include "addons/encryption/store_keys.h"
#endif
#if defined(WITH_SEARCH)
#include "addons/search/message_search.h"
#endif
#if defined(WITH_STATEMENT_CACHE)
#include "addons/statement_cache/statement_cache.h"
#endif
#include "base/log_message.h"
#include "corvan/version.h"
#include "db/cv_db_singleton.h"

int main() {
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_ERROR);
#if defined(WITH_STATEMENT_CACHE)
  if (!Corvan::StatementCache::set_limit(32)) return 1;
#endif
  auto* store = Corvan::CvDbSingleton::get_instance();
#if defined(WITH_ENCRYPTION)
  Corvan::StoreKey::Bytes bytes{1, 2, 3};
  if (!Corvan::StoreKeys::set(cvrtc::Pathname("./"), Corvan::StoreKey(bytes))) return 1;
  if (!Corvan::StoreKeys::has_cipher()) {
    cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_NONE);
    if (store->init_open_db(cvrtc::Pathname("./"), "", "me")) return 1;
    Corvan::StoreKeys::forget(cvrtc::Pathname("./"));
    cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_ERROR);
  }
#endif
  if (!store->init_open_db(cvrtc::Pathname("./"), "", "me")) return 1;
  store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "Hello!", true, 0, 0, false, 0,
                      0, "server-id-1", false, false, true);

  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, true);
  for (const auto& message : page) std::cout << message.sender_ << ": " << message.content_ << '\n';
#if defined(WITH_SEARCH)
  Corvan::MessageSearch search(cvrtc::Pathname("./"));
  const auto work = search.catch_up(std::chrono::seconds(1));
  if (work.status != Corvan::SearchStatus::kOk || work.messages != 1) return 1;
  if (search.find("HELLO").hits.size() != 1 || !search.find("hell").hits.empty()) return 1;
#endif
  std::cout << "headers " << CORVAN_VERSION_STRING << ", " << CORVAN_VERSION_MAJOR << "."
            << CORVAN_VERSION_MINOR << "." << CORVAN_VERSION_PATCH << "; schema "
            << store->get_database_version() << '\n';
  Corvan::CvDbSingleton::delete_instance();
}
