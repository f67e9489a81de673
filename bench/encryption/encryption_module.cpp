// The store of the encryption benchmark, in a module: see support/store_module.h.

#include <stdexcept>

#include "addons/encryption/store_keys.h"
#include "bench/encryption/keyed_store.h"
#include "bench/support/messages.h"
#include "db/cv_db_singleton.h"

namespace corvan_bench {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::StoreKey;
using Corvan::StoreKeys;

constexpr std::size_t kPage = 20;

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(std::string("the store cannot ") + what);
}

StoreKey key_of(KeyForm form) {
  std::string passphrase = "a passphrase of several words";
  if (form == KeyForm::kPassphrase) return StoreKey::from_passphrase(passphrase);
  StoreKey::Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(7 * i + 1);
  return StoreKey(bytes);
}

class ModuleStore final : public KeyedStore {
 public:
  ~ModuleStore() override { CvDbSingleton::delete_instance(); }

  void set_key(const std::string& folder, KeyForm form) override {
    require(StoreKeys::has_cipher(), "encrypt: SQLite has no cipher");
    require(StoreKeys::set(cvrtc::Pathname(folder), key_of(form)), "take a key");
  }
  void open(const std::string& folder) override {
    require(db().init_open_db(cvrtc::Pathname(folder), "", "me"), "be opened");
  }
  void close() override { db().close_db(); }

  void begin() override { require(db().start_transaction(), "begin"); }
  void commit() override { require(db().commit_transaction(), "commit"); }
  void run(const std::string& sql) override { db().execute_none_query(sql); }

  void save(const MessageResponse& message) override { require(save_live(message) > 0, "save"); }
  void save_batch(const Messages& messages) override {
    require(db().save_message(messages) && messages.back()->msg_id_ > 0, "save a batch");
  }
  void read_history(const MessageResponse& before) override {
    std::vector<MessageResponse> page;
    db().get_history_message_by_time(before.session_id_, before.session_type_, "", before.msg_id_,
                                     kPage, page, true);
    require(page.size() == kPage, "read a page of history");
  }
  void read_list() override {
    std::vector<Corvan::SessionInfo> page;
    db().get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, kPage, page);
    require(page.size() == kPage, "read a page of the list");
  }
  void count_unread() override {
    int32_t unread = 0;
    require(db().get_total_unread_count(unread) && unread > 0, "count the unread");
  }
  void find(const MessageResponse& message) override {
    int64_t id = 0;
    std::string server_uid;
    db().is_message_exist(message.client_uid_, message.sender_, message.session_id_,
                          message.session_type_, id, server_uid);
    require(id == message.msg_id_, "find a message");
  }

 private:
  static CvDbSingleton& db() { return *CvDbSingleton::get_instance(); }
};

}  // namespace

}  // namespace corvan_bench

extern "C" {

corvan_bench::KeyedStore* corvan_module_make();

corvan_bench::KeyedStore* corvan_module_make() {
  return new corvan_bench::ModuleStore;
}

}  // extern "C"
