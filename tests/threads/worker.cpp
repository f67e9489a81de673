#include "tests/threads/worker.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <random>
#include <utility>
#include <vector>

namespace corvan_test {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

void Worker::work(uint64_t rounds, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<void (Worker::*)()> turns{&Worker::receive, &Worker::send,   &Worker::batch,
                                        &Worker::change,  &Worker::remove, &Worker::converse,
                                        &Worker::count,   &Worker::read};
  for (round_ = 0; round_ < rounds; ++round_) {
    std::shuffle(turns.begin(), turns.end(), random);
    for (const auto turn : turns) (this->*turn)();
  }
}

void Worker::check(const std::string& file) const {
  const std::string all = std::to_string(round_);
  EXPECT_EQ(messages(file, "in", "1=1"), all);
  EXPECT_EQ(messages(file, "in", "direction=1 and object_name='CV:TxtMsg'"), all);
  EXPECT_EQ(session(file, "in"), all + "|" + std::to_string((round_ + 2) / 3));
  EXPECT_EQ(messages(file, "out", "1=1"), all);
  EXPECT_EQ(messages(file, "out", "direction=0 and sent_status=3 and server_uid like 'named %'"),
            all);
  EXPECT_EQ(session(file, "out"), "0|0");
  EXPECT_EQ(messages(file, "batch", "1=1"), std::to_string(2 * round_));
  EXPECT_EQ(messages(file, "batch", "server_uid like '% done'"), std::to_string(2 * round_));
  EXPECT_EQ(messages(file, "state", "1=1"), all);
  EXPECT_EQ(messages(file, "state", "object_name='CV:EditMsg' and sent_status=2"), all);
  EXPECT_EQ(session(file, "state"), all + "|0");
  EXPECT_EQ(messages(file, "gone", "1=1"), "0");
  EXPECT_EQ(session(file, "row"), "");
  EXPECT_EQ(session(file, "count"), std::to_string((round_ + 1) % 2) + "|0");
}

std::string Worker::room(const std::string& name, uint64_t worker) const {
  return name + " " + std::to_string(run_) + " " + std::to_string(worker);
}

std::string Worker::key(const std::string& name) const {
  return room(name) + " " + std::to_string(round_);
}

int64_t Worker::client_uid() const {
  return static_cast<int64_t>((run_ * 100 + number_) * 1000000 + round_ + 1);
}

bool Worker::store_message(const NewMessage& m) {
  ++expected_.stored;
  return save_into(store_, m) > 0;
}

int64_t Worker::id_of(const std::string& uid) {
  MessageResponse m;
  m.server_uid_ = uid;
  EXPECT_TRUE(store_.get_message_by_uid(m)) << uid;
  EXPECT_TRUE(whole(m)) << uid;
  return m.msg_id_;
}

void Worker::receive() {
  NewMessage m = message(key("in")).in(room("in"), CV_GROUP).at(time()).client(client_uid());
  if (round_ % 3 == 0) m.mention();
  EXPECT_TRUE(store_message(m));
  EXPECT_EQ(save_into(store_, m), -1);
  expected_.seen.push_back(m.server_uid);
  EXPECT_TRUE(store_.is_message_exist(m.server_uid));
  int32_t unread = 0;
  EXPECT_TRUE(store_.get_unread_count(m.session_id, CV_GROUP, unread));
  EXPECT_EQ(static_cast<uint64_t>(unread), round_ + 1);
}

// Saves an own message and completes it by saving it again; then the server's answer and a receipt
// arrive.
void Worker::send() {
  const std::string id = room("out");
  NewMessage m = NewMessage().in(id, CV_GROUP).at(time()).own(client_uid()).status(1);
  m.text(body(key("out"), kText));
  EXPECT_TRUE(store_message(m));
  const int64_t found = store_.get_max_message_id(CV_GROUP, id, 2);
  EXPECT_EQ(save_into(store_, m.named("first " + key("out"))), found);
  std::vector<UpdateValue> values(1);
  values[0].session_id_ = id;
  values[0].session_type_ = CV_GROUP;
  values[0].sender_ = m.sender;
  values[0].client_uid_ = client_uid();
  EXPECT_TRUE(store_.is_message_exist(values));
  EXPECT_EQ(values[0].msg_id_, found);
  EXPECT_EQ(values[0].server_uid_old_, m.server_uid);
  EXPECT_EQ(store_.set_sendtime(found, time(), "named " + key("out"), 0), SQLITE_DONE);
  store_.set_sessiontime(time(), found, id, CV_GROUP);
  EXPECT_EQ(store_.get_send_time(found), time());
  EXPECT_TRUE(store_.update_message_receipt_status(id, CV_GROUP, time()));
  int64_t receipt = 0;
  store_.get_receipt_time(id, CV_GROUP, receipt);
  EXPECT_EQ(receipt, time());
}

void Worker::batch() {
  std::vector<std::unique_ptr<MessageResponse>> records;
  std::vector<UpdateValue> values;
  std::string uids;
  for (const char* part : {" a", " b"}) {
    auto m = std::make_unique<MessageResponse>();
    m->session_id_ = room("batch");
    m->session_type_ = CV_GROUP;
    m->object_name_ = kText;
    m->content_ = body(key("batch") + part, kText);
    m->sender_ = "from " + key("batch") + part;
    m->client_uid_ = client_uid();
    m->sent_time_ = time();
    m->is_receive_ = true;
    m->is_store_ = true;
    m->msg_id_ = -1;
    UpdateValue value;
    value.session_id_ = m->session_id_;
    value.session_type_ = m->session_type_;
    value.sender_ = m->sender_;
    value.client_uid_ = m->client_uid_;
    value.server_uid_new_ = key("batch") + part + " done";
    value.sent_time_ = time();
    uids += (uids.empty() ? "'" : ",'") + value.server_uid_new_ + "'";
    values.push_back(value);
    records.push_back(std::move(m));
  }
  EXPECT_TRUE(store_.save_message(records));
  EXPECT_TRUE(store_.is_message_exist(values));
  store_.set_send_time_for_dup_msg(values);
  std::vector<std::string> found;
  EXPECT_TRUE(store_.is_message_exist(uids, found));
  EXPECT_EQ(found.size(), 2U);
  int32_t all = 0;
  EXPECT_TRUE(store_.get_message_count(room("batch"), CV_GROUP, all));
  EXPECT_EQ(static_cast<uint64_t>(all), 2 * (round_ + 1));
}

void Worker::change() {
  EXPECT_TRUE(store_message(message(key("state")).in(room("state"), CV_GROUP).at(time())));
  const int64_t id = id_of(key("state"));
  EXPECT_TRUE(store_.set_message_content(id, body(key("state"), kEdited), kEdited));
  EXPECT_TRUE(store_.update_sent_status(id, 2));
  EXPECT_TRUE(store_.common_message_int(id, 1, "update t_message set read_status=? where id=?"));
  EXPECT_EQ(id_of(key("state")), id);
  EXPECT_TRUE(store_.update_message_status(room("state"), CV_GROUP));
}

void Worker::remove() {
  const std::string id = room("gone");
  for (const char* part : {" a", " b", " c"}) {
    EXPECT_TRUE(store_message(message(key("gone") + part).in(id, CV_CHATROOM).at(time())));
  }
  EXPECT_TRUE(store_message(message(key("gone") + " d").in(id, CV_CHATROOM).at(1)));
  store_.delete_message(id, CV_CHATROOM, {key("gone") + " a"});
  EXPECT_TRUE(store_.clear_message_by_timestamp(2, false));
  MessageResponse m;
  for (const char* part : {" a", " d"}) {
    m.server_uid_ = key("gone") + part;
    EXPECT_FALSE(store_.get_message_by_uid(m)) << m.server_uid_;
  }
  EXPECT_TRUE(store_.clear_message(id, CV_CHATROOM, false));
  EXPECT_TRUE(store_.delete_message(id, CV_CHATROOM));
  EXPECT_EQ(store_.get_max_message_id(CV_CHATROOM, id, 2), -1);
}

void Worker::converse() {
  const std::string id = room("row");
  EXPECT_TRUE(store_.add_session(id, CV_GROUP, time(), 0, "title " + id, 3, 2));
  EXPECT_TRUE(store_.set_is_top(id, CV_GROUP, true, false));
  EXPECT_TRUE(store_.set_message_draft(id, CV_GROUP, "draft " + id));
  EXPECT_TRUE(store_.set_silence(id, CV_GROUP, 2));
  store_.set_session_time(id, CV_GROUP, clock_now() + 1, kText, 0, 1, 1, 0);
  SessionInfo info;
  info.session_id_ = id;
  info.session_type_ = CV_GROUP;
  EXPECT_TRUE(store_.get_session(info));
  EXPECT_EQ(info.title_ + "|" + info.draft_, "title " + id + "|draft " + id);
  EXPECT_EQ(info.is_top_, 1);
  EXPECT_EQ(info.unread_count_, 4);
  EXPECT_EQ(info.mention_count_, 3);
  EXPECT_EQ(info.session_time, clock_now() + 1);
  int32_t silence = 0;
  EXPECT_TRUE(store_.get_silence(id, CV_GROUP, silence));
  EXPECT_EQ(silence, 2);
  if (round_ % 2 == 0) {
    EXPECT_TRUE(store_.remove_session(id, CV_GROUP));
  } else {
    EXPECT_TRUE(store_.delete_session(id, CV_GROUP));
  }
  EXPECT_FALSE(store_.is_session_exist(id, CV_GROUP));
}

void Worker::count() {
  const std::string id = room("count");
  if (!store_.is_session_exist(id, CV_GROUP)) {
    EXPECT_TRUE(store_.add_session(id, CV_GROUP, time(), -1, "", 1, 0));
  }
  store_.set_unread_readtime(id, CV_GROUP, time());
  int64_t read = 0;
  store_.get_readtime(id, CV_GROUP, read);
  EXPECT_EQ(read, time());
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(store_.set_unread_by_value(id, CV_GROUP, -1, 0));
  EXPECT_TRUE(store_.set_unread_by_value(id, CV_GROUP, 2, 0));
  int32_t unread = 0;
  EXPECT_TRUE(store_.get_unread_count(id, CV_GROUP, unread));
  EXPECT_EQ(unread, 1);
  store_.set_receipttime(id, CV_GROUP, time());
  EXPECT_TRUE(store_.set_message_latestid(id, CV_GROUP, -1, 0));
  if (round_ % 2 != 0) return;
  EXPECT_TRUE(store_.sync_unread(id, CV_GROUP, time()));  // no message of direction 2: 0
}

void Worker::read() {
  for (const char* name : {"in", "out", "batch", "state"}) {
    std::vector<MessageResponse> page;
    store_.get_history_message_by_time(room(name, next_), CV_GROUP, "", 0, 20, page, true);
    for (const MessageResponse& m : page) EXPECT_TRUE(whole(m)) << m.content_;
    store_.get_mention_message(room(name, next_), CV_GROUP, page);
  }
  std::vector<Session> rows;
  std::string kinds = "2,3";
  store_.load_session(rows, kinds, 0, 50, false);  // none before the first save
  for (Session& row : rows) {
    // The newest message may be that of another conversation, or deleted by now.
    if (store_.load_message(row)) {
      EXPECT_TRUE(whole(row.content_, row.object_name_, row.sender_)) << row.content_;
    }
  }
  int32_t unread = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store_.get_total_unread_count(unread));
  EXPECT_TRUE(store_.get_cate_unread_count({CV_GROUP}, unread, false));
  EXPECT_TRUE(store_.get_unread_mention_count({CV_GROUP, CV_PRIVATE}, unread, mention));
  int64_t received = 0;
  int64_t sent = 0;
  EXPECT_TRUE(store_.get_sync_time(&received, &sent));
  EXPECT_TRUE(received == sent || received == sent + 1) << received << " " << sent;
  EXPECT_TRUE(store_.is_table_exist("t_sync"));
  EXPECT_EQ(store_.get_database_version(), "1");
  EXPECT_EQ(store_.is_db_unlocked(""), SQLITE_OK);
  EXPECT_EQ(store_.get_pragma("pragma user_version"), 1);
}

std::string Worker::messages(const std::string& file, const std::string& name,
                             const std::string& condition) const {
  return corvan_test::rows(file,
                           "select count(distinct content) from t_message where "
                           "session_id='" +
                               room(name) + "' and " + condition)
      .front();
}

std::string Worker::session(const std::string& file, const std::string& name) const {
  const Rows found = corvan_test::rows(
      file,
      "select unread_count,mention_count from t_session where session_id='" + room(name) + "'");
  return found.empty() ? "" : found.front();
}

}  // namespace corvan_test
