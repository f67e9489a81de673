// Opens a store in the working directory, saves a message, reads it back, and prints that and the
// versions of the headers and of the schema.

#include <iostream>
#include <vector>

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
  if (!store->init_open_db(cvrtc::Pathname("./"), "", "me")) return 1;
  store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "Hello!", true, 0, 0, false, 0,
                      0, "server-id-1", false, false, true);

  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, true);
  for (const auto& message : page) std::cout << message.sender_ << ": " << message.content_ << '\n';
  std::cout << "headers " << CORVAN_VERSION_STRING << ", " << CORVAN_VERSION_MAJOR << "."
            << CORVAN_VERSION_MINOR << "." << CORVAN_VERSION_PATCH << "; schema "
            << store->get_database_version() << '\n';
  Corvan::CvDbSingleton::delete_instance();
}
