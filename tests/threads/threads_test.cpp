// Several threads on the one store.
//
// What the store promises: reads and single writes may come from several threads at once. Each
// statement is whole: no write is lost, no reader sees half a row, no log line is torn. Opening,
// closing, transactions and paging the conversation list stay with one thread. The first half of
// this file runs all of that at once; under a thread checker it must be silent.
//
// What it does not promise, because an operation of several statements is not one unit. The second
// half shows each at its worst moment, by name; whoever must not meet it serialises the calls.
//
//  - Tests and inserts of a save: two saves of one message at once can both store it
//    (SameMessageSavedTwiceAtOnceIsStoredTwice).
//  - Reads followed by writes: of two at once one is lost, or a time goes back.
//    save_message, set_session_time, set_sessiontime: an unread message is not counted, the
//    conversation stays behind (SavesIntoOneConversationAtOnce..., FirstMessagesAtOnce...).
//    set_is_top, set_message_draft (PinningAMissingConversationAtOnceFails).
//    update_message_receipt_status (ReceiptTimeGoesBack). set_sync_time (SyncMarksSetAtOnce...).
//    clear_message and delete_message by server uids, which point the conversation elsewhere
//    afterwards (ClearingAConversationForgetsAMessageSavedMeanwhile). Likewise sync_unread,
//    update_message_status, set_send_time_for_dup_msg after its test.
//  - Transactions belong to the connection: what another thread does meanwhile is committed or
//    rolled back with them (SaveOfAnotherThreadIsLostWithTheTransaction), an operation that is one
//    transaction commits them (OperationOfAnotherThreadCommitsTheTransaction), and two such
//    operations at once are no units (DeletingWhileAnotherThreadMarksAsRead...).
//  - The last row id belongs to the connection: the id that a save returns, and that its
//    conversation names as its newest message, can be that of another thread's insert
//    (SaveReturnsTheIdOfAnotherThreadsInsert, BatchRecordReceivesTheIdOfAnotherThreadsInsert), even
//    of one into another table (SaveReturnsTheRowIdOfAnotherThreadsConversation).
//  - So does the error text, get_error() and what the log says of a failure
//    (ErrorTextIsThatOfTheLastFailure). When two operations fail at the same moment, one may even
//    read the text while SQLite replaces it; there is no test for that.
//  - The mark of where the page of the conversation list before ended exists once
//    (TwoReadersOfTheListLoseTheirPlace).
//  - A compaction fails while any statement is under way (CompactionFailsWhileAnotherThreadReads).
//  - A read that goes on while another thread writes sees some of that and not the rest.
//  - Closing, and a damaged file, which is closed and deleted by the operation that meets it, while
//    another thread has a statement: undefined. In one thread: the statement, when it was running,
//    is interrupted, and the failure has no connection to ask for its text, which aborts the
//    process (RunningStatementOfAClosedStoreAborts); else it goes on, on a connection that nobody
//    closes (PreparedStatementOutlivesItsStore).

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/bounds.h"
#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CV_SYSTEM;
using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

void on_another_thread(const std::function<void()>& work) {
  std::thread(work).join();
}

// Lets another thread do its work at one moment of this one's: before or after the first step of
// the first statement whose text begins so. The moment must come.
class Meanwhile {
 public:
  enum Moment { kBefore, kAfter };

  Meanwhile(Moment moment, std::string beginning, std::function<void()> work)
      : moment_(moment), beginning_(std::move(beginning)), work_(std::move(work)) {
    armed = this;
  }
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;
  ~Meanwhile() {
    armed = nullptr;
    EXPECT_TRUE(ran_) << beginning_;
  }

  static void reach(Moment moment, sqlite3_stmt* stmt) {
    Meanwhile* const meanwhile = armed.load(std::memory_order_relaxed);
    if (meanwhile != nullptr) meanwhile->run(moment, stmt);
  }

 private:
  void run(Moment moment, sqlite3_stmt* stmt) {
    if (ran_ || moment != moment_) return;
    if (std::string(sqlite3_sql(stmt)).compare(0, beginning_.size(), beginning_) != 0) return;
    ran_ = true;
    on_another_thread(work_);
  }

  static inline std::atomic<Meanwhile*> armed{nullptr};

  const Moment moment_;
  const std::string beginning_;
  const std::function<void()> work_;
  bool ran_ = false;
};

}  // namespace
}  // namespace corvan_test

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_step(sqlite3_stmt* stmt);
int __wrap_sqlite3_step(sqlite3_stmt* stmt);

int __wrap_sqlite3_step(sqlite3_stmt* stmt) {
  corvan_test::Meanwhile::reach(corvan_test::Meanwhile::kBefore, stmt);
  const int rc = __real_sqlite3_step(stmt);
  corvan_test::Meanwhile::reach(corvan_test::Meanwhile::kAfter, stmt);
  return rc;
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace corvan_test {
namespace {

// ---- What the store promises --------------------------------------------------------------------

// A message's body, by its kind: all of it follows from the key at its front, so that half an
// update, or half a row, shows.
constexpr const char* kText = "CV:TxtMsg";
constexpr const char* kEdited = "CV:EditMsg";

std::string body(const std::string& key, const std::string& kind) {
  std::string text = key + "|" + kind;
  while (text.size() < 300) text += "|" + key;
  return text;
}

bool whole(const std::string& content, const std::string& kind, const std::string& sender) {
  const std::string key = content.substr(0, content.find('|'));
  const bool right_sender = sender == "me" || sender == "from " + key;
  return !key.empty() && content == body(key, kind) && right_sender;
}

bool whole(const MessageResponse& m) {
  return whole(m.content_, m.object_name_, m.sender_);
}

// The counts of log lines that a run must leave behind.
struct Expected {
  std::size_t stored = 0;         // saves that inserted
  std::vector<std::string> seen;  // server uids of saves that were refused
};

NewMessage message(const std::string& key) {
  return NewMessage().named(key).from("from " + key).text(body(key, kText));
}

int64_t save_into(CvDbSingleton& store, const NewMessage& m) {
  return store.save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                            m.is_receive, m.sent_status, m.read_status, m.is_mention, m.sent_time,
                            m.client_uid, m.server_uid, m.history, m.insert_only, m.is_count);
}

// One of the threads that read and write at once. It writes into conversations of its own, so that
// it knows what is in them, and reads those of the next one, too.
class Worker {
 public:
  Worker(CvDbSingleton& store, uint64_t run, uint64_t number, uint64_t next)
      : store_(store), run_(run), number_(number), next_(next) {}

  void work(uint64_t rounds, uint64_t seed) {
    std::mt19937_64 random(seed);
    std::vector<void (Worker::*)()> turns{&Worker::receive, &Worker::send,   &Worker::batch,
                                          &Worker::change,  &Worker::remove, &Worker::converse,
                                          &Worker::count,   &Worker::read};
    for (round_ = 0; round_ < rounds; ++round_) {
      std::shuffle(turns.begin(), turns.end(), random);
      for (const auto turn : turns) (this->*turn)();
    }
  }

  // Every row that it wrote is there, once, and nothing else is in its conversations.
  void check(const std::string& file) const {
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

  const Expected& expected() const { return expected_; }

 private:
  std::string room(const std::string& name) const { return room(name, number_); }
  std::string room(const std::string& name, uint64_t worker) const {
    return name + " " + std::to_string(run_) + " " + std::to_string(worker);
  }
  std::string key(const std::string& name) const {
    return room(name) + " " + std::to_string(round_);
  }
  int64_t client_uid() const {
    return static_cast<int64_t>((run_ * 100 + number_) * 1000000 + round_ + 1);
  }
  int64_t time() const { return static_cast<int64_t>(1000 + round_); }

  bool store_message(const NewMessage& m) {
    ++expected_.stored;
    return save_into(store_, m) > 0;
  }

  // The row id that the store has for a server uid; the one that a save returns can be another's.
  int64_t id_of(const std::string& uid) {
    MessageResponse m;
    m.server_uid_ = uid;
    EXPECT_TRUE(store_.get_message_by_uid(m)) << uid;
    EXPECT_TRUE(whole(m)) << uid;
    return m.msg_id_;
  }

  void receive() {
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

  // An own message, named by the server when it is saved again, then acknowledged and covered.
  void send() {
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

  void batch() {
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

  void change() {
    EXPECT_TRUE(store_message(message(key("state")).in(room("state"), CV_GROUP).at(time())));
    const int64_t id = id_of(key("state"));
    EXPECT_TRUE(store_.set_message_content(id, body(key("state"), kEdited), kEdited));
    EXPECT_TRUE(store_.update_sent_status(id, 2));
    EXPECT_TRUE(store_.common_message_int(id, 1, "update t_message set read_status=? where id=?"));
    EXPECT_EQ(id_of(key("state")), id);
    EXPECT_TRUE(store_.update_message_status(room("state"), CV_GROUP));
  }

  void remove() {
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

  void converse() {
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

  void count() {
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
    EXPECT_TRUE(store_.sync_unread(id, CV_GROUP, time()));  // nothing of that direction: 0
  }

  void read() {
    for (const char* name : {"in", "out", "batch", "state"}) {
      std::vector<MessageResponse> page;
      store_.get_history_message_by_time(room(name, next_), CV_GROUP, "", 0, 20, page, true);
      for (const MessageResponse& m : page) EXPECT_TRUE(whole(m)) << m.content_;
      store_.get_mention_message(room(name, next_), CV_GROUP, page);
    }
    std::vector<Session> rows;
    std::string kinds = "2,3";
    store_.load_session(rows, kinds, 0, 50, false);  // none, as long as no thread has saved
    for (Session& row : rows) {
      // The newest message that a conversation names may be another one's, or gone by now.
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

  std::string messages(const std::string& file, const std::string& name,
                       const std::string& condition) const {
    return corvan_test::rows(file,
                             "select count(distinct content) from t_message where "
                             "session_id='" +
                                 room(name) + "' and " + condition)
        .front();
  }

  std::string session(const std::string& file, const std::string& name) const {
    const Rows found = corvan_test::rows(
        file,
        "select unread_count,mention_count from t_session where session_id='" + room(name) + "'");
    return found.empty() ? "" : found.front();
  }

  CvDbSingleton& store_;
  const uint64_t run_;
  const uint64_t number_;
  const uint64_t next_;
  uint64_t round_ = 0;
  Expected expected_;
};

// The one thread that does what must not be shared.
class Driver {
 public:
  Driver(CvDbSingleton& store, uint64_t run)
      : store_(store), room_("driver " + std::to_string(run)) {}

  void prepare() {
    for (int i = 0; i < 6; ++i) {
      const std::string id = room_ + " " + std::to_string(i);
      EXPECT_TRUE(store_.add_session(id, CV_PRIVATE, 900 + i, 0, "", 0, 0));
      EXPECT_TRUE(store_.set_is_top(id, CV_PRIVATE, i < 2, false));
    }
  }

  void work(int64_t round) {
    const std::string key = room_ + " " + std::to_string(round) + " ";
    EXPECT_TRUE(store_.start_transaction());
    for (const char* part : {"a", "b", "c"}) {
      EXPECT_TRUE(store_message(message(key + part).in(room_, CV_GROUP).at(1000 + round)));
    }
    EXPECT_TRUE(store_message(message(key + "system").in(room_, CV_SYSTEM)));
    EXPECT_TRUE(store_.commit_transaction());
    EXPECT_TRUE(store_.set_read_status(id_of(key + "a"), 1));
    store_.set_send_time(id_of(key + "b"), 1000 + round, "", room_, CV_GROUP, 0);
    EXPECT_TRUE(store_.delete_message(std::vector<int64_t>{id_of(key + "c")}));
    EXPECT_TRUE(store_.clear_session({CV_SYSTEM}));
    std::vector<MessageResponse> span;
    EXPECT_TRUE(store_.get_matched_message(room_, CV_GROUP, 0, 5, 5, span));
    for (const MessageResponse& m : span) EXPECT_TRUE(whole(m)) << m.content_;
    sync_times(round);
    page();
    ++rounds_;
  }

  void sync_times(int64_t round) {
    int64_t received = 0;
    EXPECT_TRUE(store_.get_sync_time(&received, nullptr));
    EXPECT_TRUE(store_.set_sync_time(received + 1, true)) << round;
    EXPECT_TRUE(store_.set_sync_time(received + 1, false)) << round;
  }

  // The pinned ones first, then by time, in pages of two.
  void page() {
    std::vector<SessionInfo> list;
    int64_t time = 0;
    while (store_.get_session_list_by_page({CV_PRIVATE}, time, 2, list) && list.size() < 10) {
      if (list.back().session_time == time) break;
      time = list.back().session_time;
    }
    std::string order;
    for (const SessionInfo& info : list) order += info.session_id_.back();
    EXPECT_EQ(order, "105432");
  }

  void check(const std::string& file) const {
    const std::string of_room =
        " from t_message where session_type=2 and session_id='" + room_ + "'";
    EXPECT_EQ(corvan_test::rows(file, "select count(*),sum(read_status)" + of_room).front(),
              std::to_string(2 * rounds_) + "|" + std::to_string(rounds_));
    EXPECT_EQ(corvan_test::rows(file,
                                "select unread_count from t_session where session_type=2 "
                                "and session_id='" +
                                    room_ + "'")
                  .front(),
              std::to_string(rounds_));
    EXPECT_EQ(corvan_test::rows(file, "select count(*) from t_message where session_type=5"),
              Rows{"0"});
  }

  const Expected& expected() const { return expected_; }

 private:
  bool store_message(const NewMessage& m) {
    ++expected_.stored;
    return save_into(store_, m) > 0;
  }
  int64_t id_of(const std::string& uid) {
    MessageResponse m;
    m.server_uid_ = uid;
    EXPECT_TRUE(store_.get_message_by_uid(m)) << uid;
    return m.msg_id_;
  }

  CvDbSingleton& store_;
  const std::string room_;
  int64_t rounds_ = 0;
  Expected expected_;
};

class Threads : public StoreTest {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  // `count` workers beside the driver, which is this thread.
  void run(uint64_t number, uint64_t count, uint64_t rounds, uint64_t seed) {
    LogCapture everything;
    Driver driver(store(), number);
    driver.prepare();
    std::vector<Worker> workers;
    for (uint64_t i = 0; i < count; ++i) workers.emplace_back(store(), number, i, (i + 1) % count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < workers.size(); ++i) {
      threads.emplace_back([&workers, i, rounds, seed] { workers[i].work(rounds, seed + i); });
    }
    for (uint64_t i = 0; i < rounds; ++i) driver.work(static_cast<int64_t>(i));
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(open_statements(), 0);
    for (const Worker& worker : workers) worker.check(file());
    driver.check(file());
    EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
    Expected expected = driver.expected();
    for (const Worker& worker : workers) {
      expected.stored += worker.expected().stored;
      const Rows& seen = worker.expected().seen;
      expected.seen.insert(expected.seen.end(), seen.begin(), seen.end());
    }
    check_lines(everything.take(), expected);
  }

  // Each line is one line whole: it begins as a line does, ends as one does, and holds one only.
  // The log holds a line for each message stored, and one for each refused.
  static void check_lines(const Rows& lines, Expected expected) {
    static const std::string kOperation = "Corvan::CvDbSingleton::";
    static const std::string kStored = "cv;;;save_msg;;;rowid: ";
    static const std::string kSeen = "cv;;;save_msg;;;msg exists: ";
    std::size_t stored = 0;
    Rows seen;
    for (const std::string& line : lines) {
      EXPECT_TRUE(line.compare(0, 2, "0 ") == 0 || line.compare(0, 2, "2 ") == 0) << line;
      const std::size_t name = line.find(kOperation);
      ASSERT_NE(name, std::string::npos) << line;
      EXPECT_EQ(line.find(kOperation, name + 1), std::string::npos) << line;
      const std::size_t fields = line.find("): ");
      ASSERT_NE(fields, std::string::npos) << line;
      const std::string text = line.substr(fields + 3);
      if (text.compare(0, kStored.size(), kStored) == 0) {
        ++stored;
        EXPECT_EQ(text.find_first_not_of("0123456789", kStored.size()), std::string::npos) << line;
      }
      if (text.compare(0, kSeen.size(), kSeen) == 0) seen.push_back(text.substr(kSeen.size()));
    }
    EXPECT_EQ(stored, expected.stored);
    std::sort(seen.begin(), seen.end());
    std::sort(expected.seen.begin(), expected.seen.end());
    EXPECT_EQ(seen, expected.seen);
  }

  // As many runs as there is time for, each with a seed of its own, at least one. Between two runs
  // the store is closed and opened.
  void run_all(uint64_t count) {
    const uint64_t rounds = bound("CORVAN_THREADS_ROUNDS", 20, 200);
    const uint64_t first_seed = setting("CORVAN_THREADS_SEED", 1);
    const TimeLimit limit;
    Tally tally;
    do {
      const uint64_t seed = first_seed + tally.points;
      const testing::ScopedTrace trace(__FILE__, __LINE__,
                                       "CORVAN_THREADS_SEED=" + std::to_string(seed));
      run(seed, count, rounds, seed);
      ++tally.points;
      EXPECT_TRUE(store().clear_session({CV_PRIVATE, CV_GROUP, CV_CHATROOM, CV_SYSTEM}));
      store().close_db();
      ASSERT_TRUE(open());
    } while (limit.given() && !limit.passed() && !HasFailure());
    print("threads", tally);
  }
};

TEST_F(Threads, TwoReadAndWriteWhileOneDrives) {
  run_all(2);
}

TEST_F(Threads, FourReadAndWriteWhileOneDrives) {
  run_all(4);
}

// ---- What it does not promise -------------------------------------------------------------------

class ThreadsNotSafe : public StoreTest {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  sqlite3* connection() {
    int32_t rc = 0;
    sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
    sqlite3* const db = sqlite3_db_handle(stmt);
    store().finalize(stmt);
    return db;
  }

  // The only conversation's time, newest message and counters.
  Rows room() const {
    return rows(
        "select session_time,latest_id,unread_count,mention_count from t_session "
        "where session_id='room'");
  }
};

using ThreadsNotSafeDeath = ThreadsNotSafe;

const Rows kNotBegun = run_failed(1, "cannot start a transaction within a transaction");

Rows not_committed() {
  Rows lines = run_failed(1, "cannot commit - no transaction is active");
  const Rows rollback = run_failed(1, "cannot rollback - no transaction is active");
  lines.insert(lines.end(), rollback.begin(), rollback.end());
  return lines;
}

TEST_F(ThreadsNotSafe, SameMessageSavedTwiceAtOnceIsStoredTwice) {
  const NewMessage same = NewMessage().named("u1").client(7);
  int64_t other = 0;
  {
    const Meanwhile second(Meanwhile::kBefore, "insert into t_message",
                           [&] { other = save(same); });
    EXPECT_EQ(save(same), 2);
  }
  EXPECT_EQ(other, 1);
  EXPECT_EQ(rows("select id,server_uid,client_uid from t_message order by id"),
            (Rows{"1|u1|7", "2|u1|7"}));
  EXPECT_EQ(room(), Rows{"100|2|2|0"});
  EXPECT_EQ(save(same), -1);  // from then on it is known
}

TEST_F(ThreadsNotSafe, FirstMessagesAtOnceLoseAnUnreadOne) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select 1 from t_session",
                           [&] { save(NewMessage().at(300)); });
    EXPECT_EQ(save(NewMessage().at(400)), 1);
  }
  EXPECT_EQ(rows("select id,sent_time from t_message order by id"), (Rows{"1|400", "2|300"}));
  EXPECT_EQ(room(), Rows{"300|2|1|0"});
  EXPECT_EQ(log.take(), run_failed(19,
                                   "UNIQUE constraint failed: t_session.session_id, "
                                   "t_session.session_type"));
}

TEST_F(ThreadsNotSafe, SavesIntoOneConversationAtOnceLoseAnUnreadOne) {
  save(NewMessage().at(100));
  {
    const Meanwhile second(Meanwhile::kAfter, "select session_time,latest_id",
                           [&] { save(NewMessage().at(300).mention()); });
    EXPECT_EQ(save(NewMessage().at(200)), 2);
  }
  // Message 3 is the newest, the third unread one and a mention.
  EXPECT_EQ(room(), Rows{"200|2|2|0"});
}

TEST_F(ThreadsNotSafe, PinningAMissingConversationAtOnceFails) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select 1 from t_session",
                           [&] { store().add_session("room", CV_GROUP, 5, -1, "", 0, 0); });
    EXPECT_FALSE(store().set_is_top("room", CV_GROUP, true, true));
  }
  EXPECT_EQ(rows("select session_time,is_top from t_session"), Rows{"5|0"});
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(ThreadsNotSafe, ClearingAConversationForgetsAMessageSavedMeanwhile) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "delete from t_message",
                           [&] { save(NewMessage().at(300)); });
    EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  }
  EXPECT_EQ(rows("select id,sent_time from t_message order by id"), Rows{"2|300"});
  EXPECT_EQ(room(), Rows{"300|-1|2|0"});
}

TEST_F(ThreadsNotSafe, ReceiptTimeGoesBack) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "select receipt_time", [&] {
      EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 300));
    });
    EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  }
  EXPECT_EQ(rows("select receipt_time from t_session"), Rows{"200"});
}

TEST_F(ThreadsNotSafe, SyncMarksSetAtOnceLoseOne) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select receive_time",
                           [&] { EXPECT_TRUE(store().set_sync_time(50, false)); });
    EXPECT_TRUE(store().set_sync_time(70, true));
  }
  EXPECT_EQ(rows("select * from t_sync"), Rows{"me|70|0"});
}

TEST_F(ThreadsNotSafe, SaveOfAnotherThreadIsLostWithTheTransaction) {
  ASSERT_TRUE(store().start_transaction());
  on_another_thread([&] { EXPECT_EQ(save(NewMessage()), 1); });
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  sqlite3* const db = connection();
  sqlite3_commit_hook(
      db, [](void*) { return 1; }, nullptr);
  EXPECT_FALSE(store().commit_transaction());
  sqlite3_commit_hook(db, nullptr, nullptr);
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_EQ(rows("select session_id from t_session"), Rows{});
  EXPECT_EQ(log.take().size(), 4U);  // the commit's failure, and the rollback's
}

TEST_F(ThreadsNotSafe, OperationOfAnotherThreadCommitsTheTransaction) {
  ASSERT_TRUE(store().start_transaction());
  EXPECT_EQ(save(NewMessage()), 1);
  on_another_thread([&] { EXPECT_TRUE(store().set_read_status(1, 1)); });
  EXPECT_EQ(log.take(), kNotBegun);
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
  EXPECT_EQ(save(NewMessage()), 2);  // on its own by now
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(log.take(), not_committed());
}

TEST_F(ThreadsNotSafe, SecondThreadCannotBeginATransactionOfItsOwn) {
  ASSERT_TRUE(store().start_transaction());
  on_another_thread([&] { EXPECT_FALSE(store().start_transaction()); });
  EXPECT_EQ(log.take(), kNotBegun);
  EXPECT_TRUE(store().commit_transaction());
}

TEST_F(ThreadsNotSafe, DeletingWhileAnotherThreadMarksAsReadLowersTheCounterTwice) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "select session_id,session_type from t_session",
                           [&] { EXPECT_TRUE(store().set_read_status(1, 1)); });
    EXPECT_TRUE(store().delete_message(std::vector<int64_t>{1}));
  }
  EXPECT_EQ(room(), Rows{"100|-1|-1|0"});
  Rows expected = kNotBegun;
  const Rows end = not_committed();
  expected.insert(expected.end(), end.begin(), end.end());
  EXPECT_EQ(log.take(), expected);
}

TEST_F(ThreadsNotSafe, SaveReturnsTheIdOfAnotherThreadsInsert) {
  save(NewMessage().in("other", CV_GROUP));
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message", [&] {
      EXPECT_EQ(save(NewMessage().in("other", CV_GROUP).text("of the other").at(300)), 3);
    });
    EXPECT_EQ(save(NewMessage().text("mine")), 3);
  }
  EXPECT_EQ(rows("select id,session_id,content from t_message order by id"),
            (Rows{"1|other|hello", "2|room|mine", "3|other|of the other"}));
  EXPECT_EQ(rows("select session_id,latest_id from t_session order by session_id"),
            (Rows{"other|3", "room|3"}));
  std::vector<SessionInfo> list;  // does not show the message
  EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 5, list));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].session_id_, "room");
  EXPECT_EQ(list[1].message_.content_, "");
  SessionInfo info;  // shows the other conversation's
  info.session_id_ = "room";
  info.session_type_ = CV_GROUP;
  EXPECT_TRUE(store().get_session(info));
  EXPECT_EQ(info.message_.content_, "of the other");
}

TEST_F(ThreadsNotSafe, SaveReturnsTheRowIdOfAnotherThreadsConversation) {
  plant("insert into t_session(rowid,session_id,session_type) values(76,'before',2)");
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message",
                           [&] { store().add_session("other", CV_GROUP, 5, -1, "", 0, 0); });
    EXPECT_EQ(save(NewMessage()), 77);  // a row of t_session; no message has that id
  }
  EXPECT_EQ(rows("select id from t_message"), Rows{"1"});
  EXPECT_EQ(room(), Rows{"100|77|1|0"});
}

TEST_F(ThreadsNotSafe, BatchRecordReceivesTheIdOfAnotherThreadsInsert) {
  save(NewMessage());
  std::vector<std::unique_ptr<MessageResponse>> batch;
  batch.push_back(std::make_unique<MessageResponse>());
  batch[0]->is_store_ = true;
  batch[0]->msg_id_ = -1;
  batch[0]->session_id_ = "mine";
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message",
                           [&] { EXPECT_EQ(save(NewMessage()), 3); });
    EXPECT_TRUE(store().save_message(batch));
  }
  EXPECT_EQ(batch[0]->msg_id_, 3);
  EXPECT_EQ(rows("select id,session_id from t_message order by id"),
            (Rows{"1|room", "2|mine", "3|room"}));
}

TEST_F(ThreadsNotSafe, ErrorTextIsThatOfTheLastFailure) {
  ASSERT_TRUE(store().set_sync_time(1, true));
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_sync",
                           [&] { store().execute_none_query("selct 1"); });
    EXPECT_EQ(store().execute_none_query("insert into t_sync values('me',0,0)"), 19);
  }
  const std::string syntax_error = "near \"selct\": syntax error";
  EXPECT_EQ(log.take(), (Rows{prepare_failed(syntax_error), step_failed(19, syntax_error),
                              finalize_failed(19, "UNIQUE constraint failed: t_sync.user_id")}));
}

TEST_F(ThreadsNotSafe, ErrorTextIsGoneAfterAnyOtherStatement) {
  store().execute_none_query("selct 1");
  EXPECT_EQ(store().get_error(), "near \"selct\": syntax error");
  on_another_thread([&] { EXPECT_FALSE(store().is_session_exist("room", CV_GROUP)); });
  EXPECT_EQ(store().get_error(), "not an error");
  log.take();
}

TEST_F(ThreadsNotSafe, TwoReadersOfTheListLoseTheirPlace) {
  plant_session("pinned 9", CV_GROUP, 900, 0);
  plant_session("pinned 8", CV_GROUP, 800, 0);
  plant("update t_session set is_top=1");
  plant_session("plain 10", CV_GROUP, 1000, 0);
  plant_session("plain 7", CV_GROUP, 700, 0);
  plant_session("private", CV_PRIVATE, 500, 0);
  std::vector<SessionInfo> list;
  ASSERT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 1, list));
  ASSERT_EQ(list[0].session_id_, "pinned 9");
  on_another_thread([&] {
    std::vector<SessionInfo> other;
    EXPECT_TRUE(store().get_session_list_by_page({CV_PRIVATE}, 0, 1, other));
  });
  ASSERT_TRUE(store().get_session_list_by_page({CV_GROUP}, 900, 5, list));
  ASSERT_EQ(list.size(), 2U);  // without "pinned 8" and "plain 10"
  EXPECT_EQ(list[1].session_id_, "plain 7");
}

TEST_F(ThreadsNotSafe, CompactionFailsWhileAnotherThreadReads) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  save(NewMessage().in("other", CV_GROUP));
  std::vector<MessageResponse> page;
  {
    const Meanwhile second(Meanwhile::kAfter, "select id,content",
                           [&] { EXPECT_FALSE(store().clear_message("other", CV_GROUP, true)); });
    EXPECT_TRUE(store().get_history_message_by_time("room", CV_GROUP, "", 0, 5, page, true));
  }
  EXPECT_EQ(page.size(), 2U);
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));  // cleared all the same
  EXPECT_EQ(log.take(), run_failed(1, "cannot VACUUM - SQL statements in progress"));
}

TEST_F(ThreadsNotSafe, PreparedStatementOutlivesItsStore) {
  int32_t rc = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
  sqlite3* const db = sqlite3_db_handle(stmt);
  store().close_db();
  EXPECT_EQ(store().get_pragma("select 1"), -1);  // the store has let go of it
  EXPECT_EQ(store().step(stmt, true), SQLITE_ROW);
  EXPECT_EQ(sqlite3_close(db), SQLITE_OK);
}

TEST_F(ThreadsNotSafeDeath, RunningStatementOfAClosedStoreAborts) {
  EXPECT_DEATH(
      {
        int32_t rc = 0;
        sqlite3_stmt* const stmt = store().prepare_sql("select 1 union all select 2", rc);
        if (store().step(stmt, false) != SQLITE_ROW) _exit(0);
        store().close_db();
        store().step(stmt, false);
      },
      "Check failed: db_ != nullptr\n# db nullptr\n");
}

}  // namespace
}  // namespace corvan_test
