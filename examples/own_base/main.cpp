// Uses the store with the facilities defined in own_base.cpp. Usage: own_base FOLDER

#include <filesystem>
#include <iostream>
#include <vector>

#include "db/cv_db_singleton.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: own_base FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder = std::filesystem::u8path(argv[1]);
  std::filesystem::create_directories(folder);
  std::filesystem::remove(folder / "corvan");

  auto* store = Corvan::CvDbSingleton::get_instance();
  if (!store->init_open_db(cvrtc::Pathname((folder / "").u8string()), "", "me")) return 1;
  std::cout << "schema " << store->get_database_version()
            << (store->is_table_exist("host_note") ? " with host_note\n" : "\n");

  // A sent_time of 0 takes the time of the host's clock.
  const auto id = store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "Hello!", true,
                                      0, 0, false, 0, 0, "server-id-1", false, false, true);
  std::vector<Corvan::MessageResponse> page;
  store->get_history_message_by_time("team", Corvan::CV_GROUP, "", 0, 20, page, true);
  for (const auto& message : page) {
    std::cout << "message " << (message.msg_id_ == id) << " at " << message.sent_time_ << ": "
              << message.content_ << '\n';
  }

  store->execute_none_query("delete from absent");  // logs an error to the host's logger
  Corvan::CvDbSingleton::delete_instance();
}
