// Adapter for the project's own store.

#include <stdexcept>
#include <utility>

#include "bench/peers/contenders.h"
#include "db/cv_db_singleton.h"
#include "tests/support/rows.h"

namespace corvan_bench {

namespace {

using Corvan::CvDbSingleton;

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("Corvan: cannot ") + what);
}

class CorvanStore final : public Store {
 public:
  ~CorvanStore() override { CvDbSingleton::delete_instance(); }

  void open(const std::string& folder) override {
    file_ = folder + "corvan";
    require(db().init_open_db(cvrtc::Pathname(folder), "", kUser), "open");
    require(db().get_pragma("pragma synchronous") == 2, "sync each commit");
  }
  void close() override { db().close_db(); }

  void begin() override { require(db().start_transaction(), "begin"); }
  void commit() override { require(db().commit_transaction(), "commit"); }

  int64_t save(const MessageResponse& m, bool mention) override {
    return db().save_message(m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_,
                             m.is_receive_, m.sent_status_, m.read_status_, mention, m.sent_time_,
                             m.client_uid_, m.server_uid_, false, false, is_unread(m));
  }
  int64_t add(const MessageResponse& message, bool mention) override {
    return save(message, mention);
  }

  void pin(const ConversationName& name) override {
    require(db().set_is_top(name.id, name.kind, true, false), "pin");
  }

  std::vector<SessionInfo> first_page(int32_t count) override {
    std::vector<SessionInfo> page;
    db().get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, count, page);
    return page;
  }

  std::vector<MessageResponse> history(const ConversationName& name, int64_t before_id,
                                       int32_t count) override {
    std::vector<MessageResponse> page;
    db().get_history_message_by_time(name.id, name.kind, "", before_id, count, page, true);
    return page;
  }

  int64_t total_unread() override {
    int32_t unread = -1;
    require(db().get_total_unread_count(unread), "count the unread");
    return unread;
  }

  // The mention list includes only messages with direction 2, which come from copied older stores.
  // The store never writes that direction, so it is set through a separate connection.
  void prepare_mentions(const ConversationName& name) override {
    corvan_test::plant(
        file_, "update t_message set direction=2 where is_mention=1 and session_id='" + name.id +
                   "' and session_type=" + std::to_string(name.kind));
  }
  std::vector<MessageResponse> mentions(const ConversationName& name) override {
    std::vector<MessageResponse> list;
    db().get_mention_message(name.id, name.kind, list);
    return list;
  }

  void mark_read(const ConversationName& name) override {
    require(db().clear_unread(name.id, name.kind), "mark as read");
  }

  void remove(const std::vector<int64_t>& ids) override {
    require(db().delete_message(ids), "delete");
  }

 private:
  static CvDbSingleton& db() { return *CvDbSingleton::get_instance(); }

  std::string file_;
};

}  // namespace

std::unique_ptr<Store> make_corvan_store() {
  return std::make_unique<CorvanStore>();
}

}  // namespace corvan_bench
