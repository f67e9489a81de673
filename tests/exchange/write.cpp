#include "tests/exchange/write.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace exchange {

namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionType;

constexpr int64_t kFirstTime = 1'600'000'000'000;
constexpr int64_t kAfter32Bits = int64_t{1} << 40;
const char* const kFriend = "朋友";
const char* const kTeam = "团队 🚀";

void check(bool is_done, const char* what) {
  if (!is_done) throw std::runtime_error(std::string("failed: ") + what);
}

struct Message {
  std::string session = kFriend;
  SessionType kind = Corvan::CV_PRIVATE;
  std::string content;
  bool is_receive = true;
  int32_t sent_status = 0;
  bool is_mention = false;
  int64_t client_uid = 0;
};

// Messages have one server uid and one second each, so that none is a duplicate.
int64_t save(CvDbSingleton& store, const Message& m) {
  static int64_t number = 0;
  ++number;
  const std::string sender = m.is_receive ? "张伟" : "我";
  const std::string uid = m.is_receive ? "srv-" + std::to_string(number) : "";
  const int64_t id = store.save_message(
      m.session, m.kind, "CV:TxtMsg", sender, m.content, m.is_receive, m.sent_status, 0,
      m.is_mention, kFirstTime + 1000 * number, m.client_uid, uid, false, false, m.is_receive);
  check(id > 0, "save_message");
  return id;
}

// Texts that a system's code page, text mode or string functions could change.
std::vector<std::string> texts() {
  return {"",
          " ",
          "plain",
          "你好，世界",
          "𠮷野家 龘靐齉",
          "👩‍👩‍👧‍👦 🇨🇳 ☕ 👍🏽",
          "مرحبا بالعالم שלום",
          "e\xCC\x81 \xC3\xA9 \xEF\xBB\xBF",
          "line\nline\r\nline\rline\x1A",
          "\x01\x02\x1F\x7F",
          "'\"\\ %_ C:\\x\\y /a/b",
          "\xF4\x8F\xBF\xBF \xEF\xBF\xBF \xEF\xBF\xBE",
          "not UTF-8: \xFF\xFE \xC0\x80 \xED\xA0\x80 \xE4\xBD",
          std::string("until zero\0not stored", 21)};
}

void write_texts(CvDbSingleton& store) {
  for (const auto& text : texts()) {
    Message message;
    message.content = text;
    save(store, message);
    message.session = "conversation " + std::to_string(text.size() % 3);
    message.kind = Corvan::CV_RECEPTION;
    message.is_receive = false;
    save(store, message);
  }
}

// Around the sizes at which SQLite moves a content to further pages, and two large ones.
void write_sizes(CvDbSingleton& store) {
  for (const std::size_t size : {63U, 64U, 489U, 4061U, 4096U, 65536U, 1000000U, 5000000U}) {
    Message message;
    message.session = kTeam;
    message.kind = Corvan::CV_GROUP;
    while (message.content.size() < size) message.content += "字" + std::to_string(size);
    message.content.resize(size);
    save(store, message);
  }
}

void write_numbers(CvDbSingleton& store) {
  Message message;
  message.is_receive = false;
  message.session = "numbers";
  for (const int64_t number : {int64_t{1}, int64_t{1} << 31, int64_t{1} << 32, kAfter32Bits,
                               (int64_t{1} << 53) + 1, std::numeric_limits<int64_t>::max()}) {
    message.client_uid = number;
    message.content = std::to_string(number);
    const int64_t id = save(store, message);
    store.set_send_time(id, number, "own-" + std::to_string(number), message.session, message.kind,
                        0);
  }
}

// Each state of an own message: sent, being sent, failed, covered by a receipt.
void write_states(CvDbSingleton& store) {
  Message own;
  own.session = "states";
  own.is_receive = false;
  for (int32_t status = 0; status <= 3; ++status) {
    own.sent_status = status;
    own.content = "status " + std::to_string(status);
    save(store, own);
  }
  check(store.update_message_receipt_status(own.session, own.kind, kFirstTime + 100'000'000),
        "update_message_receipt_status");
  own.sent_status = 1;
  own.content = "being sent";
  save(store, own);
  Message received;
  received.session = own.session;
  received.is_mention = true;
  check(store.set_read_status(save(store, received), 1), "set_read_status");
  save(store, received);
}

// Enough messages for several pages of each table and index; some are changed and deleted again.
void write_many(CvDbSingleton& store) {
  check(store.start_transaction(), "start_transaction");
  std::vector<int64_t> ids;
  for (int i = 0; i < 400; ++i) {
    Message message;
    message.session = "room " + std::to_string(i % 2);
    message.kind = i % 2 == 0 ? Corvan::CV_CHATROOM : Corvan::CV_SYSTEM;
    message.content = "第 " + std::to_string(i) + " 条消息";
    message.is_mention = i % 7 == 0;
    ids.push_back(save(store, message));
  }
  check(store.commit_transaction(), "commit_transaction");
  check(store.set_message_content(ids[10], "已编辑 ✏️", "CV:QbNtf"), "set_message_content");
  check(store.delete_message({ids[3], ids[200], ids[399]}), "delete_message");
}

void write_batch(CvDbSingleton& store) {
  std::vector<std::unique_ptr<MessageResponse>> records;
  for (int i = 0; i < 3; ++i) {
    auto record = std::make_unique<MessageResponse>();
    record->msg_id_ = -1;
    record->is_store_ = true;
    record->is_receive_ = i != 1;
    record->session_id_ = "批量";
    record->session_type_ = Corvan::CV_GROUP;
    record->sender_ = "李娜";
    record->object_name_ = "CV:ImgMsg";
    record->content_ = "{\"n\":" + std::to_string(i) + "}";
    record->server_uid_ = "batch-" + std::to_string(i);
    record->sent_time_ = kAfter32Bits + i;
    records.push_back(std::move(record));
  }
  check(store.save_message(records), "save_message of a batch");
  check(store.add_session("批量", Corvan::CV_GROUP, kAfter32Bits, records.back()->msg_id_,
                          "批量 title 📦", 2, 1),
        "add_session");
}

void write_settings(CvDbSingleton& store) {
  check(store.set_is_top(kTeam, Corvan::CV_GROUP, true, false), "set_is_top");
  check(store.set_silence(kTeam, Corvan::CV_GROUP, 1), "set_silence");
  check(store.set_message_draft(kFriend, Corvan::CV_PRIVATE, "草稿\r\n✍️"),
        "set_message_draft");
  store.set_receipttime(kFriend, Corvan::CV_PRIVATE, kAfter32Bits);
  check(store.clear_unread("room 0", Corvan::CV_CHATROOM), "clear_unread");
  check(store.remove_session("conversation 1", Corvan::CV_RECEPTION), "remove_session");
  check(store.set_sync_time(kAfter32Bits + 1, true), "set_sync_time");
  check(store.set_sync_time(kAfter32Bits + 2, false), "set_sync_time");
}

}  // namespace

void write_rows(CvDbSingleton& store) {
  write_texts(store);
  write_sizes(store);
  write_numbers(store);
  write_states(store);
  write_many(store);
  write_batch(store);
  write_settings(store);
}

}  // namespace exchange
