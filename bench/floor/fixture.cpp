#include "bench/floor/fixture.h"

#include <filesystem>
#include <stdexcept>

#include "db/cv_db_singleton.h"

namespace corvan_bench {

using Corvan::CvDbSingleton;

std::string conversation(int number) {
  return "group-" + std::to_string(1000 + number);
}

Corvan::MessageResponse message(int number) {
  Corvan::MessageResponse m;
  m.session_id_ = conversation(number % kConversations);
  m.session_type_ = kConversationKind;
  m.object_name_ = "CV:TxtMsg";
  m.sender_ = "peer-" + std::to_string(number % 7);
  m.content_ = R"({"content":"a message of some forty characters, or so"})";
  m.sent_time_ = 1'600'000'000'000 + number * int64_t{1000};
  m.server_uid_ = "BX7K-2QPM-9S4D-" + std::to_string(100000 + number);
  m.msg_id_ = -1;
  m.is_receive_ = true;
  m.is_store_ = true;
  return m;
}

void write_fixture(const std::string& folder) {
  CvDbSingleton& store = *CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder), "", kUser)) {
    throw std::runtime_error("the store cannot be opened");
  }
  store.start_transaction();
  for (int i = 0; i < kMessages; ++i) {
    const Corvan::MessageResponse m = message(i);
    store.save_message(m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_, true,
                       0, 0, i % 10 == 0, m.sent_time_, 0, m.server_uid_, false, false, true);
  }
  for (int i = 0; i < kConversations; ++i) {
    if (i % 8 == 0) store.set_is_top(conversation(i), kConversationKind, true, false);
    if (i % 5 == 0) store.set_silence(conversation(i), kConversationKind, 2);
    if (i % 9 == 0) {
      store.execute_none_query("update t_session set draft='a draft' where session_id='" +
                               conversation(i) + "'");
    }
  }
  if (!store.commit_transaction()) throw std::runtime_error("the fixture cannot be written");
  CvDbSingleton::delete_instance();
}

void copy_fixture(const std::string& from, const std::string& to) {
  std::filesystem::copy_file(from + "corvan", to + "corvan");
}

}  // namespace corvan_bench
