#include "tests/support/operations/small_store.h"

#include <stdexcept>

#include "base/cv_database.h"
#include "tests/support/store_test.h"

namespace corvan_test {

namespace {

// An older store: the three tables that a store has, and an index that it does not have.
void create_older(const std::string& file) {
  plant(file, Corvan::CvDatabase::table_index().at("t_message"));
  plant(file, Corvan::CvDatabase::table_index().at("t_session"));
  plant(file, Corvan::CvDatabase::table_index().at("t_sync"));
  plant(file, "create index older_index on t_message(sender)");
  plant(file,
        "insert into t_message(id,session_id,session_type,direction) values(500,'older',1,2)");
  plant(file, "insert into t_session(session_id,session_type) values('older',1)");
  plant(file, "insert into t_sync values('you',8,9)");
  plant(file, "pragma user_version=7");
}

}  // namespace

std::string peer_message(int i) {
  return std::to_string(i + 4) + ":peer:1:u01:CV:TxtMsg:xxxxx:p" + std::to_string(i) +
         ":100:" + std::to_string(1000 + i);
}

void fill_store(const std::string& folder) {
  create_older(folder + "older");
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder), "", "me")) {
    throw std::runtime_error("the small store does not open");
  }
  save(store, NewMessage().at(100).named("s1").mention());
  save(store, NewMessage().own(5).at(200).named("s2"));
  save(store, NewMessage().own(6).at(300).status(1));
  for (int i = 0; i < kPeerMessages; ++i) {
    save(store, NewMessage()
                    .in("peer", kPeer)
                    .at(1000 + i)
                    .named("p" + std::to_string(i))
                    .text(std::string(400, 'x')));
  }
  store.set_is_top("old", Corvan::CV_CHATROOM, true, true);
  store.set_sync_time(3, true);
  store.set_sync_time(4, false);
  Corvan::CvDbSingleton::delete_instance();
}

void fill_ledger_store(Corvan::CvDbSingleton& store) {
  save(store, NewMessage().at(100).named("s1").mention());
  save(store, NewMessage().own(5).at(200).named("s2"));
  save(store, NewMessage().own(6).at(300));
}

}  // namespace corvan_test
