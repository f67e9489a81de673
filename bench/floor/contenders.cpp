#include "bench/floor/contenders.h"

#include <stdexcept>

#include "bench/floor/fixture.h"
#include "bench/floor/floor.h"
#include "db/cv_db_singleton.h"

namespace corvan_bench {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

// `Operations` is the store or a floor, which have operations with the same names.
template <typename Operations>
class Direct : public Contender {
 public:
  explicit Direct(Operations& operations) : operations_(operations) {}

  int64_t save(const MessageResponse& m) override {
    return operations_.save_message(m.session_id_, m.session_type_, m.object_name_, m.sender_,
                                    m.content_, true, m.sent_status_, 0, false, m.sent_time_,
                                    m.client_uid_, m.server_uid_, false, false, true);
  }
  bool save_batch(const Messages& messages) override { return operations_.save_message(messages); }
  bool history_page(const std::string& session_id, int32_t count,
                    std::vector<MessageResponse>& page) override {
    return operations_.get_history_message_by_object_name(session_id, kConversationKind, {}, 0,
                                                          count, page, true);
  }
  bool list_page(const std::vector<SessionType>& kinds, int32_t limit,
                 std::vector<SessionInfo>& page) override {
    return operations_.get_session_list_by_page(kinds, 0, limit, page);
  }
  bool unread_count(const std::string& session_id, int32_t& unread) override {
    return operations_.get_unread_count(session_id, kConversationKind, unread);
  }
  bool set_read_status(int64_t msg_id, int32_t read_status) override {
    return operations_.set_read_status(msg_id, read_status);
  }
  bool delete_messages(const std::vector<int64_t>& ids) override {
    return operations_.delete_message(ids);
  }

 private:
  Operations& operations_;
};

class StoreContender final : public Direct<CvDbSingleton> {
 public:
  explicit StoreContender(const std::string& folder) : Direct(*CvDbSingleton::get_instance()) {
    if (!CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder), "", kUser)) {
      throw std::runtime_error("the store cannot be opened");
    }
  }
  ~StoreContender() override { CvDbSingleton::delete_instance(); }

  void run(const std::string& sql) override {
    CvDbSingleton::get_instance()->execute_none_query(sql);
  }
};

template <typename Statements>
struct FloorHolder {
  explicit FloorHolder(const std::string& folder) : floor(folder + "corvan", kUser) {}
  Floor<Statements> floor;
};

template <typename Statements>
class FloorContender final : private FloorHolder<Statements>, public Direct<Floor<Statements>> {
 public:
  explicit FloorContender(const std::string& folder)
      : FloorHolder<Statements>(folder), Direct<Floor<Statements>>(this->floor) {}

  void run(const std::string& sql) override { this->floor.run(sql.c_str()); }
};

}  // namespace

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kStore:
      return "store";
    case Kind::kFloor:
      return "floor";
    case Kind::kCachedFloor:
      return "cached floor";
  }
  return "";
}

std::unique_ptr<Contender> make_contender(Kind kind, const std::string& folder) {
  switch (kind) {
    case Kind::kStore:
      return std::make_unique<StoreContender>(folder);
    case Kind::kFloor:
      return std::make_unique<FloorContender<PreparedEachTime>>(folder);
    case Kind::kCachedFloor:
      return std::make_unique<FloorContender<PreparedOnce>>(folder);
  }
  return nullptr;
}

}  // namespace corvan_bench
