// The work of an operation does not depend on how much is stored. It is counted in steps of
// SQLite's virtual machine, which are the same at every run, on a store and on one that holds ten
// times as much. The two agree where it matters: what the newest messages of a conversation are
// like, how many of them are unread, which conversations head the list. So the counts are expected
// to be equal, without an allowance: a step is one instruction, however deep a tree it descends
// into.
//
// Not here: operations without a statement, get_message_draft(), whose statement cannot be
// prepared, and is_db_unlocked() and the compaction, whose statements are SQLite's own.

#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <utility>

#include "base/cv_database.h"
#include "tests/support/numbers.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

// ---- What is stored -----------------------------------------------------------------------------

constexpr int kMessages = 600;  // of the small store
constexpr int kConversations = 60;
constexpr int kGrowth = 10;

constexpr int64_t kFirstTime = 200000;  // no time is a message's id
constexpr int64_t kAfterAll = 900000;   // later than every time
constexpr int kTinyMessages = 10;
constexpr int kUnread = 4;     // of the newest messages of a conversation these are unread
constexpr int kNewOnes = 5;    // messages that are newer than the read and the receipt time
constexpr int kMentions = 12;  // of direction 2

// Conversations of kind 2. The first two hold received and own messages by turns, the own ones
// covered by the peer's receipt.
constexpr const char* kLargest = "largest";  // a tenth of all messages
constexpr const char* kTiny = "tiny";        // ten messages, from all over the store
// A twentieth of all messages each.
constexpr const char* kOwn = "own";            // own messages that no receipt covers
constexpr const char* kReceived = "received";  // received ones
constexpr const char* kOlder = "older";        // direction 2, the newest are unread mentions
constexpr const char* kCovered = "covered";    // own messages that a receipt covers
constexpr const char* kOlderRead = "older_read";
// Of kind 5, ten messages.
constexpr const char* kSystem = "system";
constexpr int kNamed = 8;

struct Planted {
  std::string session_id;
  int type = Corvan::CV_GROUP;
  int place = 0;  // from its conversation's newest
  int direction = 1;
  int sent_status = 0;
};

// The message that has so many newer ones in the store.
Planted planted(int newer, int messages, int conversations) {
  const int tiny_step = messages / kTinyMessages;
  Planted m;
  if (newer % 10 == 0) {
    m = {kLargest, Corvan::CV_GROUP, newer / 10};
  } else if (newer % tiny_step == 2) {
    m = {kTiny, Corvan::CV_GROUP, newer / tiny_step};
  } else if (newer % tiny_step == 4) {
    m = {kSystem, Corvan::CV_SYSTEM, newer / tiny_step};
  } else {
    switch (newer % 20) {
      case 1:
        return {kOwn, Corvan::CV_GROUP, newer / 20, 0, 0};
      case 3:
        return {kReceived, Corvan::CV_GROUP, newer / 20, 1, 0};
      case 5:
        return {kOlder, Corvan::CV_GROUP, newer / 20, 2, 0};
      case 7:
        return {kCovered, Corvan::CV_GROUP, newer / 20, 0, 3};
      case 9:
        return {kOlderRead, Corvan::CV_GROUP, newer / 20, 2, 0};
      default:
        break;
    }
    const int number = newer % (conversations - kNamed);
    m = {"c" + std::to_string(number), 1 + number % 2, newer / (conversations - kNamed)};
  }
  if (m.place % 2 == 1) {
    m.direction = 0;
    m.sent_status = 3;
  }
  return m;
}

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

// Nothing here outlives a test: no write waits for the disk.
constexpr const char* kWithoutSync = "pragma synchronous=off;";

std::string planted_messages(int messages, int conversations) {
  static const std::vector<std::string> kinds = {"'CV:TxtMsg'", "'CV:ImgMsg'", "'CV:VcMsg'"};
  std::string values;
  const auto number = [&values](int64_t value) { values += "," + std::to_string(value); };
  for (int id = 1; id <= messages; ++id) {
    const Planted m = planted(messages - id, messages, conversations);
    const bool is_mention = m.session_id == kOlder && m.place < kMentions;
    const bool is_unread = is_mention || (m.direction == 1 && m.place < kUnread);
    values += id == 1 ? "(" : ",(";
    values += quoted(m.session_id);
    number(m.type);
    values += "," + kinds[static_cast<std::size_t>(m.place) % kinds.size()];
    values += m.direction == 0 ? ",'text','me'" : ",'text','u01'";
    number(m.direction);
    number(m.sent_status);
    number(is_unread ? 0 : 1);
    number(is_mention ? 1 : 0);
    number(kFirstTime + id);
    number(id);
    values += ",'s" + std::to_string(id) + "')";
  }
  return "insert into t_message(session_id,session_type,object_name,content,sender,direction,"
         "sent_status,read_status,is_mention,sent_time,client_uid,server_uid) values" +
         values;
}

std::string planted_sessions() {
  const std::string sixth =
      "coalesce((select sent_time from t_message as m where m.session_id=t_message.session_id and "
      "m.session_type=t_message.session_type order by sent_time desc limit 1 offset " +
      std::to_string(kNewOnes) + "),0)";
  return "insert into t_session(session_id,session_type,session_time,latest_id,unread_count,"
         "mention_count,silence,is_top,read_time,receipt_time) select session_id,session_type,"
         "max(sent_time),max(id),4,1,session_id like '%1',"
         "session_id in('c6','c8','c11','c12','c13')," +
         sixth + "," + sixth + " from t_message group by session_id,session_type";
}

// The files of both stores, filled once for all tests of a process.
class FilledFiles {
 public:
  FilledFiles() {
    fill(small_, 1);
    fill(large_, kGrowth);
  }

  std::string small() const { return small_.file("corvan"); }
  std::string large() const { return large_.file("corvan"); }

 private:
  static void fill(const TemporaryFolder& place, int factor) {
    std::string tables;
    std::string indexes;  // quicker to make once the messages are there
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
      (sql.find("create index") == 0 ? indexes : tables) += sql + ";";
    }
    plant(place.file("corvan"),
          std::string(kWithoutSync) + "pragma journal_mode=WAL;pragma user_version=1;begin;" +
              tables + planted_messages(factor * kMessages, factor * kConversations) + ";" +
              indexes + planted_sessions() + ";commit");
  }

  TemporaryFolder small_;
  TemporaryFolder large_;
};

// ---- How it is counted --------------------------------------------------------------------------

struct StoredMessage {
  int64_t id = 0;
  int64_t time = 0;
  std::string uid;
};

// The conversation that an operation is run on.
struct Room {
  std::string id;
  SessionType type = Corvan::CV_GROUP;
  int messages = 0;
  StoredMessage newest;
  StoredMessage middle;
};

// What an operation sees of the store: only its own calls of store() are counted.
class FilledStore : public StoreTest {
 public:
  using StoreTest::file;
  using StoreTest::rows;
  using StoreTest::save;
  using StoreTest::store;

  void plant(const std::string& sql) const { corvan_test::plant(file(), kWithoutSync + sql); }

  // The first row.
  std::string row(const std::string& sql) const {
    const Rows result = rows(sql);
    return result.empty() ? "" : result.front();
  }
  std::string session(const Room& room, const std::string& columns) const {
    return row("select " + columns + " from t_session" + where(room));
  }
  std::string message(int64_t id, const std::string& columns) const {
    return row("select " + columns + " from t_message where id=" + std::to_string(id));
  }
  int count(const std::string& from) const {
    return std::stoi(row("select count(*) from " + from));
  }
  int count_in(const Room& room, const std::string& condition = "1") const {
    return count("t_message" + where(room) + " and " + condition);
  }

 protected:
  static std::string where(const Room& room) {
    return " where session_id=" + quoted(room.id) +
           " and session_type=" + std::to_string(room.type);
  }

  void SetUp() override { set_clock(kAfterAll + 1); }

  void open_copy(const std::string& filled) {
    store().close_db();
    std::filesystem::copy_file(filled, file(), std::filesystem::copy_options::overwrite_existing);
    ASSERT_TRUE(open());
    store().execute_none_query(kWithoutSync);
  }
  void open_small() { open_copy(files().small()); }
  void open_large() { open_copy(files().large()); }

  StoredMessage message_at(const std::string& id, int offset) const {
    const std::string from = " from t_message where session_id=" + quoted(id) +
                             " order by id desc limit 1 offset " + std::to_string(offset);
    StoredMessage m;
    m.id = std::stoll(row("select id" + from));
    m.time = std::stoll(row("select sent_time" + from));
    m.uid = row("select server_uid" + from);
    return m;
  }

  Room room(const std::string& id) const {
    Room room;
    room.id = id;
    room.messages = count_in(room);
    room.newest = message_at(id, 0);
    room.middle = message_at(id, room.messages / 2);
    return room;
  }

  template <typename Operate>
  StepCounts steps_of(const Operate& run, const std::string& room_id) {
    const Room target = room(room_id);
    take_steps();
    run(*this, target);
    return take_steps();
  }

 private:
  static const FilledFiles& files() {
    static const FilledFiles files;
    return files;
  }
};

using Run = std::function<void(FilledStore&, const Room&)>;

using Names = std::vector<std::string>;
const Names kBoth = {kLargest, kTiny};

struct Operation {
  std::string name;
  Run run;  // checks that the operation did its work
  Names rooms = kBoth;
  int full_scan_steps = 0;  // at most: a page of the list and what it passes over, or the schema
};

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

// An operation whose work is what it returns, changes, counts or passes over.
struct GrowingOperation {
  std::string name;
  std::string grows_with;
  Run run;
  std::string room = kLargest;
};

void PrintTo(const GrowingOperation& operation, std::ostream* out) {
  *out << operation.name;
}

template <typename Each>
std::string operation_name(const testing::TestParamInfo<Each>& info) {
  return info.param.name;
}

class Flat : public FilledStore, public testing::WithParamInterface<Operation> {};

TEST_P(Flat, TenTimesTheStoreTakesTheSameSteps) {
  const Operation& operation = GetParam();
  std::vector<StepCounts> small;
  open_small();
  for (const std::string& id : operation.rooms) small.push_back(steps_of(operation.run, id));
  open_large();
  for (std::size_t i = 0; i < operation.rooms.size(); ++i) {
    SCOPED_TRACE(operation.name + " on conversation " + operation.rooms[i]);
    const StepCounts in_small = small[i];
    const StepCounts in_large = steps_of(operation.run, operation.rooms[i]);
    EXPECT_GT(in_small.vm_steps, 0) << "no statement was counted";
    EXPECT_EQ(in_large.vm_steps, in_small.vm_steps);
    EXPECT_EQ(in_large.full_scan_steps, in_small.full_scan_steps);
    EXPECT_LE(in_large.full_scan_steps, operation.full_scan_steps);
    EXPECT_EQ(in_small.sorts, 0);
    EXPECT_EQ(in_large.sorts, 0);
  }
}

class Growing : public FilledStore, public testing::WithParamInterface<GrowingOperation> {};

// In proportion at most: without a sort, which would grow faster. Conversations may be read from
// end to end, messages not. What has stopped growing belongs among the flat operations.
TEST_P(Growing, TenTimesTheStoreTakesTenTimesTheStepsAtMost) {
  const GrowingOperation& operation = GetParam();
  SCOPED_TRACE(operation.name + " grows with " + operation.grows_with);
  open_small();
  const StepCounts in_small = steps_of(operation.run, operation.room);
  open_large();
  const StepCounts in_large = steps_of(operation.run, operation.room);
  EXPECT_LE(in_large.vm_steps, (kGrowth + 1) * in_small.vm_steps);
  EXPECT_GT(in_large.vm_steps, in_small.vm_steps);
  EXPECT_LE(in_large.full_scan_steps, kGrowth * kConversations);
  EXPECT_EQ(in_small.sorts, 0);
  EXPECT_EQ(in_large.sorts, 0);
}

class FilledStores : public FilledStore {};

TEST_F(FilledStores, OneHoldsTenTimesWhatTheOtherHolds) {
  open_small();
  const Rows kinds = rows("select distinct object_name from t_message");
  EXPECT_EQ(kinds.size(), 3U);
  EXPECT_EQ(count("t_message"), kMessages);
  EXPECT_EQ(count("t_session"), kConversations);
  EXPECT_EQ(room(kLargest).messages, kMessages / 10);
  EXPECT_EQ(room(kTiny).messages, kTinyMessages);
  open_large();
  EXPECT_EQ(count("t_message"), kGrowth * kMessages);
  EXPECT_EQ(count("t_session"), kGrowth * kConversations);
  EXPECT_EQ(room(kLargest).messages, kGrowth * kMessages / 10);
  EXPECT_EQ(room(kTiny).messages, kTinyMessages);
  for (const char* id : {kOwn, kCovered, kReceived, kOlder, kOlderRead}) {
    EXPECT_EQ(room(id).messages, kGrowth * kMessages / 20) << id;
  }
}

// ---- Lifecycle and opening ----------------------------------------------------------------------

constexpr int kSchemaRows = 20;  // tables and indexes, and some more

std::vector<Operation> lifecycle() {
  return {
      {"InitOpenDb",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         s.store().close_db();
         EXPECT_TRUE(s.store().init_open_db(cvrtc::Pathname(s.file()), "", "me"));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       },
       kBoth, kSchemaRows},
      {"InitOpenDbOfTheOpenFile",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         EXPECT_TRUE(s.store().init_open_db(cvrtc::Pathname(s.file()), "", "me"));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
      {"GetDatabaseVersion",
       [](FilledStore& s, const Room&) { EXPECT_EQ(s.store().get_database_version(), "1"); },
       {kTiny},
       kSchemaRows},
      {"IsTableExist",
       [](FilledStore& s, const Room&) { EXPECT_TRUE(s.store().is_table_exist("t_session")); },
       {kTiny},
       kSchemaRows},
      {"CreatedbCopydata",
       [](FilledStore& s, const Room&) {
         const std::string old = s.file() + ".old";
         std::filesystem::remove(old);
         for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
           corvan_test::plant(old, sql);
         }
         corvan_test::plant(old,
                            "insert into t_message(id,session_id,session_type,sent_time) "
                            "values(100001,'copied',2,5),(100002,'copied',2,6);"
                            "insert into t_session(session_id,session_type) values('copied',2)");
         ASSERT_EQ(s.store().execute_none_query("attach '" + old + "' as odb"), kDone);
         s.store().createdb_copydata();
         ASSERT_EQ(s.store().execute_none_query("detach odb"), kDone);
         EXPECT_EQ(s.count("t_message where session_id='copied'"), 2);
         EXPECT_EQ(s.count("t_session where session_id='copied'"), 1);
       },
       {kTiny},
       2 * kSchemaRows},
      {"ClearSendstatus",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         s.store().clear_sendstatus(true);
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(Lifecycle, Flat, testing::ValuesIn(lifecycle()),
                         operation_name<Operation>);

// ---- Transactions and sync times ----------------------------------------------------------------

std::vector<Operation> transactions() {
  return {
      {"StartAndCommitTransaction",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().start_transaction());
         EXPECT_TRUE(in_transaction());
         EXPECT_TRUE(s.store().commit_transaction());
       },
       {kTiny}},
      {"SetSyncTime",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().set_sync_time(5, true));
         EXPECT_EQ(s.row("select * from t_sync"), "me|5|0");
       },
       {kTiny}},
      {"GetSyncTime",
       [](FilledStore& s, const Room&) {
         s.plant("insert into t_sync values('me',5,6)");
         int64_t received = 0;
         int64_t sent = 0;
         EXPECT_TRUE(s.store().get_sync_time(&received, &sent));
         EXPECT_EQ(received, 5);
         EXPECT_EQ(sent, 6);
       },
       {kTiny}},
  };
}
INSTANTIATE_TEST_SUITE_P(Transactions, Flat, testing::ValuesIn(transactions()),
                         operation_name<Operation>);

// ---- Saving messages ----------------------------------------------------------------------------

NewMessage message_in(const Room& room) {
  return NewMessage().in(room.id, room.type).at(kAfterAll).named("new in " + room.id);
}

UpdateValue key_of(const FilledStore& s, const Room& room, int64_t id) {
  UpdateValue value;
  value.session_id_ = room.id;
  value.session_type_ = room.type;
  value.client_uid_ = std::stoll(s.message(id, "client_uid"));
  value.sender_ = s.message(id, "sender");
  return value;
}

std::vector<Operation> saving() {
  return {
      {"SaveMessage",
       [](FilledStore& s, const Room& room) {
         const int64_t id = s.save(message_in(room));
         EXPECT_GT(id, room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id,unread_count"), std::to_string(id) + "|5");
       }},
      {"SaveMessageOfOwn",
       [](FilledStore& s, const Room& room) {
         const int64_t id = s.save(message_in(room).own(100000).named("").status(1));
         EXPECT_GT(id, room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id"), std::to_string(id));
       }},
      {"SaveMessageFetched",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.save(message_in(room).at(room.middle.time).fetched()), room.newest.id);
         EXPECT_EQ(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
      {"SaveMessageInNewConversation",
       [](FilledStore& s, const Room& room) {
         Room fresh = room;
         fresh.id += " new";
         const int64_t id = s.save(message_in(fresh));
         EXPECT_EQ(s.session(fresh, "latest_id"), std::to_string(id));
       }},
      {"SaveMessageKnownByServerUid",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.save(message_in(room).named(room.middle.uid)), -1);
       }},
      {"SaveMessageKnownByClientKey",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.newest.id);
         EXPECT_EQ(s.save(message_in(room).from(key.sender_).client(key.client_uid_)), -1);
       }},
      {"SaveMessageThatCompletes",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.newest.id);
         s.plant("update t_message set server_uid='' where id=" + std::to_string(room.newest.id));
         EXPECT_EQ(s.save(message_in(room).from(key.sender_).client(key.client_uid_)),
                   room.newest.id);
         EXPECT_EQ(s.message(room.newest.id, "server_uid"), "new in " + room.id);
       }},
      {"SaveMessageBatch",
       [](FilledStore& s, const Room& room) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 3; ++i) {
           auto m = std::make_unique<MessageResponse>();
           m->session_id_ = room.id;
           m->session_type_ = room.type;
           m->msg_id_ = -1;
           m->is_store_ = true;
           m->sent_time_ = kAfterAll;
           batch.push_back(std::move(m));
         }
         EXPECT_TRUE(s.store().save_message(batch));
         EXPECT_EQ(s.count_in(room), room.messages + 3);
       }},
      {"IsMessageExistAfterTheBeginning",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_message_exist(room.id, room.type, int64_t{0}));
       },
       {kLargest, kTiny, kReceived, kCovered}},
      {"IsMessageExistAfterTheNewest",
       [](FilledStore& s, const Room& room) {
         EXPECT_FALSE(s.store().is_message_exist(room.id, room.type, room.newest.time));
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"IsMessageExistByServerUids",
       [](FilledStore& s, const Room& room) {
         std::vector<std::string> found;
         const std::string uids = quoted(room.middle.uid) + ",'none'," + quoted(room.newest.uid);
         EXPECT_TRUE(s.store().is_message_exist(uids, found));
         EXPECT_EQ(found.size(), 2U);
       }},
      {"IsMessageExistByClientKeys",
       [](FilledStore& s, const Room& room) {
         std::vector<UpdateValue> values = {key_of(s, room, room.middle.id),
                                            key_of(s, room, room.newest.id)};
         values[1].client_uid_ = 100000;
         EXPECT_TRUE(s.store().is_message_exist(values));
         EXPECT_EQ(values[0].msg_id_, room.middle.id);
         EXPECT_EQ(values[1].msg_id_, -1);
       }},
      {"SetSendTimeForDupMsg",
       [](FilledStore& s, const Room& room) {
         s.store().set_send_time_for_dup_msg(room.middle.id, kAfterAll, "named");
         EXPECT_EQ(s.message(room.middle.id, "server_uid,sent_time"), "named|900000");
       }},
      {"SetSendTimeForDupMsgs",
       [](FilledStore& s, const Room& room) {
         std::vector<UpdateValue> values(2);
         values[0].msg_id_ = room.middle.id;
         values[1].msg_id_ = room.newest.id;
         for (UpdateValue& value : values) value.server_uid_new_ = "named";
         s.store().set_send_time_for_dup_msg(values);
         EXPECT_EQ(s.count_in(room, "server_uid='named'"), 2);
       }},
      {"IsMessageExistByServerUid",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_message_exist(room.middle.uid));
         EXPECT_FALSE(s.store().is_message_exist("none"));
       }},
      {"IsMessageExistByClientKey",
       [](FilledStore& s, const Room& room) {
         const UpdateValue key = key_of(s, room, room.middle.id);
         int64_t id = 0;
         std::string uid;
         EXPECT_TRUE(
             s.store().is_message_exist(key.client_uid_, key.sender_, room.id, room.type, id, uid));
         EXPECT_EQ(id, room.middle.id);
         EXPECT_FALSE(s.store().is_message_exist(100000, key.sender_, room.id, room.type, id, uid));
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(Saving, Flat, testing::ValuesIn(saving()), operation_name<Operation>);

// ---- Message state ------------------------------------------------------------------------------

std::vector<Operation> state() {
  return {
      {"SetSendTime",
       [](FilledStore& s, const Room& room) {
         s.store().set_send_time(room.middle.id, kAfterAll, "named", room.id, room.type, 0);
         EXPECT_EQ(s.message(room.middle.id, "sent_status,server_uid,sent_time"), "0|named|900000");
         EXPECT_EQ(s.session(room, "session_time"), "900000");
       }},
      {"UpdateSentStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().update_sent_status(room.middle.id, 2));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
      {"SetReadStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_read_status(room.newest.id, 1));
         EXPECT_EQ(s.message(room.newest.id, "read_status"), "1");
         EXPECT_EQ(s.session(room, "unread_count"), "3");
       }},
      {"UpdateMessageReceiptStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, room.newest.time));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), kNewOnes);
         EXPECT_EQ(s.session(room, "receipt_time"), std::to_string(room.newest.time));
       },
       {kOwn}},
      {"UpdateMessageReceiptStatusWithNothingToCover",
       [](FilledStore& s, const Room& room) {
         const int covered = s.count_in(room, "sent_status=3");
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, room.newest.time));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), covered);
         EXPECT_EQ(s.session(room, "receipt_time"), std::to_string(room.newest.time));
       },
       {kLargest, kTiny, kReceived, kCovered}},
      {"UpdateMessageReceiptStatusAtTheFirstReceipt",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set receipt_time=0");
         const int covered = s.count_in(room, "sent_status=3");
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, room.newest.time));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), covered);
         EXPECT_EQ(s.session(room, "receipt_time"), std::to_string(room.newest.time));
       },
       {kLargest, kTiny, kReceived, kCovered}},
      {"UpdateMessageReceiptStatusOfALateReceipt",
       [](FilledStore& s, const Room& room) {
         const std::string receipt_time = s.session(room, "receipt_time");
         const int covered = s.count_in(room, "sent_status=3");
         EXPECT_TRUE(
             s.store().update_message_receipt_status(room.id, room.type, std::stoll(receipt_time)));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), covered);
         EXPECT_EQ(s.session(room, "receipt_time"), receipt_time);
       },
       {kLargest, kTiny, kReceived, kCovered}},
      {"SetMessageContent",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_content(room.middle.id, "changed", "CV:New"));
         EXPECT_EQ(s.message(room.middle.id, "content,object_name"), "changed|CV:New");
       }},
      {"GetClientUidOfAConversation",
       [](FilledStore& s, const Room& room) {
         int64_t uid = 0;
         s.store().get_client_uid(room.id, room.type, uid);
         EXPECT_EQ(std::to_string(uid), s.message(room.newest.id, "client_uid"));
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"GetClientUidOfAMessage",
       [](FilledStore& s, const Room& room) {
         int64_t uid = 0;
         s.store().get_client_uid(room.middle.id, uid);
         EXPECT_EQ(std::to_string(uid), s.message(room.middle.id, "client_uid"));
       }},
      {"SetSendtime",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().set_sendtime(room.middle.id, kAfterAll, "named", 1), kDone);
         EXPECT_EQ(s.message(room.middle.id, "sent_status,server_uid,sent_time"), "2|named|900000");
       }},
      {"CommonMessageInt",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_message_int(room.middle.id, 9,
                                                  "update t_message set read_status=? where id=?"));
         EXPECT_EQ(s.message(room.middle.id, "read_status"), "9");
       }},
      {"CommonMessageText",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_message_text(room.middle.id, "changed",
                                                   "update t_message set content=? where id=?"));
         EXPECT_EQ(s.message(room.middle.id, "content"), "changed");
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(State, Flat, testing::ValuesIn(state()), operation_name<Operation>);

// ---- Deleting and clearing messages -------------------------------------------------------------

std::vector<Operation> deleting() {
  return {
      {"DeleteMessagesById",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_message({room.middle.id, room.newest.id}));
         EXPECT_EQ(s.count_in(room), room.messages - 2);
         EXPECT_EQ(s.session(room, "unread_count"), "3");
         EXPECT_NE(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
      {"DeleteMessagesByServerUid",
       [](FilledStore& s, const Room& room) {
         s.store().delete_message(room.id, room.type, {room.middle.uid, room.newest.uid});
         EXPECT_EQ(s.count_in(room), room.messages - 2);
         EXPECT_NE(s.session(room, "latest_id"), std::to_string(room.newest.id));
       }},
      {"ClearMessage",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message(room.id, room.type, false));
         EXPECT_EQ(s.count_in(room), 0);
         EXPECT_EQ(s.session(room, "latest_id"), "-1");
       },
       {kTiny}},
      {"ClearMessageByTimestamp",
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_message");
         s.plant("insert into t_message(session_id,sent_time) values('old',1),('old',2),('old',3)");
         EXPECT_TRUE(s.store().clear_message_by_timestamp(kFirstTime, false));
         EXPECT_EQ(s.count("t_message"), before);
         EXPECT_EQ(s.count("t_message where session_id='old'"), 0);
       },
       {kTiny}},
      {"ClearMessageByTimestampWithNoneOlder",
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_message");
         EXPECT_TRUE(s.store().clear_message_by_timestamp(kFirstTime, false));
         EXPECT_EQ(s.count("t_message"), before);
       },
       {kTiny}},
      {"DeleteMessagesOfAConversation",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_message(room.id, int32_t{room.type}));
         EXPECT_EQ(s.count_in(room), 0);
       },
       {kTiny}},
  };
}
INSTANTIATE_TEST_SUITE_P(Deleting, Flat, testing::ValuesIn(deleting()), operation_name<Operation>);

// ---- Message queries ----------------------------------------------------------------------------

// Pages of four, which the tiny conversation has as well.
Run history(bool from_middle, bool desc, const Names& kinds) {
  return [=](FilledStore& s, const Room& room) {
    std::vector<MessageResponse> page;
    EXPECT_TRUE(s.store().get_history_message_by_object_name(
        room.id, room.type, kinds, from_middle ? room.middle.id : 0, 4, page, desc));
    EXPECT_EQ(page.size(), 4U);
    if (!from_middle && kinds.empty()) {
      EXPECT_EQ(page.front().msg_id_, room.newest.id);
    }
  };
}

Run max_time(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    int64_t time = 0;
    s.store().get_max_time(time, room.type, room.id, choice);
    EXPECT_EQ(time, room.newest.time);
  };
}

Run max_message_id(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    EXPECT_EQ(s.store().get_max_message_id(room.type, room.id, choice), room.newest.id);
  };
}

std::vector<Operation> queries() {
  return {
      {"GetMessageById",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.msg_id_ = room.middle.id;
         EXPECT_TRUE(s.store().get_message_by_id(m));
         EXPECT_EQ(m.server_uid_, room.middle.uid);
       }},
      {"GetMessageByUid",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.server_uid_ = room.middle.uid;
         EXPECT_TRUE(s.store().get_message_by_uid(m));
         EXPECT_EQ(m.msg_id_, room.middle.id);
       }},
      {"HistoryNewestPage", history(false, true, {})},
      {"HistoryPageBefore", history(true, true, {})},
      {"HistoryPageAfter", history(true, false, {})},
      {"HistoryNewestPageOfOneKind", history(false, true, {"CV:TxtMsg"})},
      {"HistoryNewestPageOfTwoKinds", history(false, true, {"CV:TxtMsg", "CV:ImgMsg"})},
      {"HistoryPageBeforeOfOneKind",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_TRUE(s.store().get_history_message_by_time(room.id, room.type, "CV:VcMsg",
                                                           room.newest.id, 2, page, true));
         EXPECT_EQ(page.size(), 2U);
       }},
      {"GetMentionMessage",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_TRUE(s.store().get_mention_message(room.id, room.type, list));
         EXPECT_EQ(list.size(), 10U);
         EXPECT_EQ(list.back().msg_id_, room.newest.id);
       },
       {kOlder}},
      {"GetMentionMessageWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_FALSE(s.store().get_mention_message(room.id, room.type, list));
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"GetMatchedMessage",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> span;
         EXPECT_TRUE(s.store().get_matched_message(room.id, room.type, room.middle.id, 3, 2, span));
         EXPECT_EQ(span.size(), 6U);
       }},
      {"GetMaxTimeOfSent", max_time(0), {kLargest, kTiny, kOwn, kReceived}},
      {"GetMaxTimeOfReceived", max_time(1), {kLargest, kTiny, kReceived}},
      {"GetMaxTimeOfAny", max_time(2), {kLargest, kTiny, kOwn, kReceived}},
      {"GetMaxMessageIdOfSent", max_message_id(0), {kLargest, kTiny, kOwn, kReceived}},
      {"GetMaxMessageIdOfReceived", max_message_id(1), {kLargest, kTiny, kReceived}},
      {"GetMaxMessageIdOfAny", max_message_id(2), {kLargest, kTiny, kOwn, kReceived}},
      {"QueryMessage",
       [](FilledStore& s, const Room& room) {
         MessageResponse m;
         m.server_uid_ = room.middle.uid;
         EXPECT_TRUE(s.store().query_message(m, true));
         EXPECT_EQ(m.msg_id_, room.middle.id);
         m.server_uid_.clear();
         EXPECT_TRUE(s.store().query_message(m, false));
         EXPECT_EQ(m.server_uid_, room.middle.uid);
       }},
      {"GetMessageByIdAndState",
       [](FilledStore& s, const Room& room) {
         std::string id;
         int32_t type = 0;
         bool unread = false;
         bool mention = false;
         int64_t time = 0;
         EXPECT_TRUE(s.store().get_message_by_id(room.middle.id, id, type, unread, mention, time));
         EXPECT_EQ(id, room.id);
         EXPECT_EQ(time, room.middle.time);
       }},
      {"GetMaxtime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_maxtime(time, room.type, room.id, 2);
         EXPECT_EQ(time, room.newest.time);
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(Queries, Flat, testing::ValuesIn(queries()), operation_name<Operation>);

// ---- Read state and send time -------------------------------------------------------------------

std::vector<Operation> read_state() {
  return {
      {"GetSendTime",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().get_send_time(room.middle.id), room.middle.time);
       }},
      {"UpdateMessageStatus",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.count_in(room, "read_status=0"), 0);
         EXPECT_TRUE(s.store().update_message_status(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       {kLargest, kTiny, kReceived}},
      {"GetReadtime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_readtime(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "read_time"));
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(ReadState, Flat, testing::ValuesIn(read_state()),
                         operation_name<Operation>);

// ---- Conversation rows and settings -------------------------------------------------------------

Room new_room() {
  Room room;
  room.id = "new";
  return room;
}

std::vector<Operation> sessions() {
  return {
      {"SetIsTop",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_is_top(room.id, room.type, true, false));
         EXPECT_EQ(s.session(room, "is_top"), "1");
       }},
      {"SetIsTopOfANewConversation",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().set_is_top("new", Corvan::CV_GROUP, true, true));
         EXPECT_EQ(s.session(new_room(), "is_top"), "1");
       },
       {kTiny}},
      {"SetMessageDraft",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_draft(room.id, room.type, "to do"));
         EXPECT_EQ(s.session(room, "draft,session_time"), "to do|900001");
       }},
      {"SetMessageDraftToNone",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set draft='to do'");
         EXPECT_TRUE(s.store().set_message_draft(room.id, room.type, ""));
         EXPECT_EQ(s.session(room, "draft"), "");
       }},
      {"SetSilence",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_silence(room.id, room.type, 2));
         EXPECT_EQ(s.session(room, "silence"), "2");
       }},
      {"GetSilence",
       [](FilledStore& s, const Room& room) {
         int32_t status = -1;
         EXPECT_TRUE(s.store().get_silence(room.id, room.type, status));
         EXPECT_EQ(status, 0);
       }},
      {"RemoveSession",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().remove_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       {kTiny}},
      {"CommonSessionOperation",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().common_session_operation(
             room.id, room.type,
             "update t_session set silence=7 where session_id=? and session_type=?"));
         EXPECT_EQ(s.session(room, "silence"), "7");
       }},
      {"IsSessionExist",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().is_session_exist(room.id, room.type));
         EXPECT_FALSE(s.store().is_session_exist("none", room.type));
       }},
      {"AddSession",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().add_session("new", Corvan::CV_GROUP, 5, -1, "title", 1, 2));
         EXPECT_EQ(s.session(new_room(), "session_time,title"), "5|title");
       },
       {kTiny}},
      {"SetSessionTime",
       [](FilledStore& s, const Room& room) {
         s.store().set_session_time(room.id, room.type, kAfterAll, "CV:TxtMsg", room.middle.id, 1,
                                    1, 0);
         EXPECT_EQ(s.session(room, "session_time,unread_count"), "900000|5");
       }},
      {"SetSessiontime",
       [](FilledStore& s, const Room& room) {
         s.store().set_sessiontime(kAfterAll, room.middle.id, room.id, room.type);
         EXPECT_EQ(s.session(room, "session_time"), "900000");
       }},
      {"GetSessiontime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         int64_t latest = 0;
         int32_t unread = 0;
         int32_t mention = 0;
         s.store().get_sessiontime(room.id, room.type, time, latest, unread, mention);
         EXPECT_EQ(time, room.newest.time);
         EXPECT_EQ(latest, room.newest.id);
       }},
      {"DeleteSession",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().delete_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(Sessions, Flat, testing::ValuesIn(sessions()), operation_name<Operation>);

// ---- Conversation list --------------------------------------------------------------------------

constexpr int kPage = 8;  // longer than the list of pinned ones
const std::vector<SessionType> kTwoKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};
const std::vector<SessionType> kAllKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP,
                                            Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
                                            Corvan::CV_SYSTEM};

Run first_page(const std::vector<SessionType>& kinds) {
  return [=](FilledStore& s, const Room&) {
    std::vector<SessionInfo> page;
    EXPECT_TRUE(s.store().get_session_list_by_page(kinds, 0, kPage, page));
    EXPECT_EQ(page.size(), std::size_t{kPage});
    for (const SessionInfo& info : page) EXPECT_EQ(info.message_.content_, "text");
  };
}

// The page behind a first one of this length.
Run second_page(int first, bool is_top) {
  return [=](FilledStore& s, const Room&) {
    std::vector<SessionInfo> page;
    EXPECT_TRUE(s.store().get_session_list_by_page(kTwoKinds, 0, first, page));
    EXPECT_EQ(page.back().is_top_ != 0, is_top);
    const int64_t last = page.back().session_time;
    page.clear();
    EXPECT_TRUE(s.store().get_session_list_by_page(kTwoKinds, last, kPage, page));
    EXPECT_EQ(page.size(), std::size_t{kPage});
  };
}

const char* const kSomeIds = "1,2,3,4,5,6,7,8";

std::vector<Operation> session_list() {
  return {
      {"ListFirstPageOfOneKind", first_page({Corvan::CV_GROUP}), {kTiny}, 2 * kPage},
      {"ListFirstPageOfTwoKinds", first_page(kTwoKinds), {kTiny}, kPage},
      {"ListFirstPageOfAllKinds", first_page(kAllKinds), {kTiny}, kPage},
      {"ListPageAmongThePinned", second_page(3, true), {kTiny}, 2 * kPage},
      {"ListPagePastThePinned", second_page(kPage, false), {kTiny}, kPage},
      {"ListPageFurtherDown",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> page;
         std::string kinds = "1,2";
         const int64_t time =
             std::stoll(s.row("select session_time from t_session where is_top=0 order by "
                              "session_time desc limit 1 offset 20"));
         EXPECT_LT(time, room.newest.time);
         EXPECT_TRUE(s.store().load_session(page, kinds, time, kPage, false));
         EXPECT_EQ(page.size(), std::size_t{kPage});
       },
       {kTiny}},
      {"GetSession",
       [](FilledStore& s, const Room& room) {
         SessionInfo info;
         info.session_id_ = room.id;
         info.session_type_ = room.type;
         EXPECT_TRUE(s.store().get_session(info));
         EXPECT_EQ(info.message_.server_uid_, room.newest.uid);
       }},
      {"LoadSession",
       [](FilledStore& s, const Room& room) {
         Session row;
         EXPECT_TRUE(s.store().load_session(row, room.id, room.type));
         EXPECT_EQ(row.latest_id_, room.newest.id);
       }},
      {"LoadMessageOfAPage",
       [](FilledStore& s, const Room&) {
         std::vector<Session> messages;
         EXPECT_TRUE(s.store().load_message(messages, kSomeIds));
         EXPECT_EQ(messages.size(), 8U);
       },
       {kTiny}},
      {"LoadMessage",
       [](FilledStore& s, const Room& room) {
         Session row;
         row.latest_id_ = room.middle.id;
         EXPECT_TRUE(s.store().load_message(row));
         EXPECT_EQ(row.server_uid_, room.middle.uid);
       }},
      {"LoadDistinctSessionWithUnread",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> found;
         EXPECT_TRUE(s.store().load_distinct_session_with_unread(
             found, std::to_string(room.newest.id) + ",1,2,3"));
         ASSERT_FALSE(found.empty());
         EXPECT_EQ(found.back().session_id_, room.id);
         EXPECT_EQ(found.back().unread_count_, 1);
       }},
      {"LoadSessionWithLatestid",
       [](FilledStore& s, const Room& room) {
         std::vector<Session> found;
         EXPECT_TRUE(s.store().load_session_with_latestid(
             found, std::to_string(room.newest.id) + ",1,2,3"));
         ASSERT_EQ(found.size(), 1U);
         EXPECT_EQ(found[0].session_id_, room.id);
       }},
      {"GetMessageLatestid",
       [](FilledStore& s, const Room& room) {
         int64_t latest = 0;
         int64_t time = 0;
         EXPECT_TRUE(s.store().get_message_latestid(room.id, room.type, latest, time));
         EXPECT_EQ(latest, room.newest.id);
         EXPECT_EQ(time, room.newest.time);
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"SetMessageLatestid",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_message_latestid(room.id, room.type, room.middle.id, kAfterAll));
         EXPECT_EQ(s.session(room, "latest_id,session_time"),
                   std::to_string(room.middle.id) + "|900000");
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(SessionList, Flat, testing::ValuesIn(session_list()),
                         operation_name<Operation>);

// ---- Counters, read and receipt times -----------------------------------------------------------

std::vector<Operation> counters() {
  return {
      {"SyncUnread",
       [](FilledStore& s, const Room& room) {
         const std::string read_time = s.session(room, "read_time");
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, std::stoll(read_time)));
         EXPECT_EQ(s.session(room, "unread_count,mention_count,read_time"), "5|5|" + read_time);
       },
       {kOlder}},
      {"SyncUnreadWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, 5));
         EXPECT_EQ(s.session(room, "unread_count,mention_count,read_time"), "0|0|5");
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"ClearUnread",
       [](FilledStore& s, const Room& room) {
         EXPECT_GT(s.count_in(room, "read_status=0"), 0);
         EXPECT_TRUE(s.store().clear_unread(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
         EXPECT_EQ(s.session(room, "unread_count,read_time"),
                   "0|" + std::to_string(room.newest.time));
       },
       {kLargest, kTiny, kReceived}},
      {"GetReceiptTime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_receipt_time(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "receipt_time"));
       }},
      {"GetUnreadCount",
       [](FilledStore& s, const Room& room) {
         int32_t unread = 0;
         EXPECT_TRUE(s.store().get_unread_count(room.id, room.type, unread));
         EXPECT_EQ(unread, 4);
       }},
      {"GetMessageCount",
       [](FilledStore& s, const Room& room) {
         int32_t count = 0;
         EXPECT_TRUE(s.store().get_message_count(room.id, room.type, count));
         EXPECT_EQ(count, kTinyMessages);
       },
       {kTiny}},
      {"SetUnreadByValue",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().set_unread_by_value(room.id, room.type, 3, 1));
         EXPECT_EQ(s.session(room, "unread_count,mention_count"), "1|0");
       }},
      {"GetUnredMention",
       [](FilledStore& s, const Room& room) {
         int32_t unread = 0;
         int32_t mention = 0;
         const int64_t time = std::stoll(s.session(room, "read_time"));
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, time, unread, mention));
         EXPECT_EQ(unread, kNewOnes);
         EXPECT_EQ(mention, kNewOnes);
       },
       {kOlder}},
      {"GetUnredMentionWithoutOlderRows",
       [](FilledStore& s, const Room& room) {
         int32_t unread = -1;
         int32_t mention = -1;
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, 0, unread, mention));
         EXPECT_EQ(unread, 0);
         EXPECT_EQ(mention, 0);
       },
       {kLargest, kTiny, kOwn, kReceived}},
      {"SetUnreadReadtime",
       [](FilledStore& s, const Room& room) {
         s.store().set_unread_readtime(room.id, room.type, 5);
         EXPECT_EQ(s.session(room, "unread_count,read_time"), "0|5");
       }},
      {"SetReceipttime",
       [](FilledStore& s, const Room& room) {
         s.store().set_receipttime(room.id, room.type, 5);
         EXPECT_EQ(s.session(room, "receipt_time"), "5");
       }},
      {"GetReceipttime",
       [](FilledStore& s, const Room& room) {
         int64_t time = 0;
         s.store().get_receipttime(room.id, room.type, time);
         EXPECT_EQ(std::to_string(time), s.session(room, "receipt_time"));
       }},
  };
}
INSTANTIATE_TEST_SUITE_P(Counters, Flat, testing::ValuesIn(counters()), operation_name<Operation>);

// ---- Statement layer ----------------------------------------------------------------------------

std::vector<Operation> statement_layer() {
  return {
      {"ExecuteNoneQuery",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().execute_none_query("update t_message set content='changed' where id=" +
                                                std::to_string(room.middle.id)),
                   kDone);
         EXPECT_EQ(s.message(room.middle.id, "content"), "changed");
       }},
      {"GetPragma",
       [](FilledStore& s, const Room&) {
         EXPECT_EQ(s.store().get_pragma("pragma user_version"), 1);
       },
       {kTiny}},
  };
}
INSTANTIATE_TEST_SUITE_P(StatementLayer, Flat, testing::ValuesIn(statement_layer()),
                         operation_name<Operation>);

// ---- What grows ---------------------------------------------------------------------------------

constexpr const char* kCounted = "the messages of the conversation, which it counts";
constexpr const char* kChanged = "the messages of the conversation, which it changes";
constexpr const char* kDeleted = "the messages of the conversation, which it deletes";
constexpr const char* kPassed = "the messages of the conversation, none of which is what it wants";
constexpr const char* kSummed = "the conversations, which it sums up";
constexpr const char* kSessionsPassed = "the conversations, which it passes over";

// Kinds that no conversation has.
const std::vector<SessionType> kNoKinds = {Corvan::CV_CHATROOM, Corvan::CV_RECEPTION};

Run no_max_time(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    int64_t time = -5;
    s.store().get_max_time(time, room.type, room.id, choice);
    EXPECT_EQ(time, -5);
  };
}

Run no_max_message_id(int32_t choice) {
  return [=](FilledStore& s, const Room& room) {
    EXPECT_EQ(s.store().get_max_message_id(room.type, room.id, choice), -1);
  };
}

Run unread_of(const std::vector<SessionType>& kinds, bool with_dnd, const std::string& condition) {
  return [=](FilledStore& s, const Room&) {
    int32_t unread = 0;
    EXPECT_TRUE(s.store().get_cate_unread_count(kinds, unread, with_dnd));
    EXPECT_EQ(unread, 4 * s.count("t_session where " + condition));
  };
}

Run unread_and_mentions_of(const std::vector<SessionType>& kinds, const std::string& condition) {
  return [=](FilledStore& s, const Room&) {
    int32_t unread = 0;
    int32_t mention = 0;
    EXPECT_TRUE(s.store().get_unread_mention_count(kinds, unread, mention));
    const int count = s.count("t_session where " + condition);
    EXPECT_EQ(unread, 4 * count);
    EXPECT_EQ(mention, count);
  };
}

std::vector<GrowingOperation> growing() {
  return {
      {"CheckIntegrity", "the file, which it reads",
       [](FilledStore& s, const Room&) {
         std::string result;
         EXPECT_TRUE(s.store().check_integrity(result));
         EXPECT_EQ(result, "ok");
       }},
      {"IsMessageExistAmongOwnMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         EXPECT_FALSE(s.store().is_message_exist(room.id, room.type, int64_t{0}));
       },
       kOwn},
      {"UpdateMessageReceiptStatusOfAll", kChanged,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set receipt_time=0");
         EXPECT_TRUE(s.store().update_message_receipt_status(room.id, room.type, kAfterAll));
         EXPECT_EQ(s.count_in(room, "sent_status=3"), room.messages);
       },
       kOwn},
      {"GetClientUidAmongCoveredMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         int64_t uid = -5;
         s.store().get_client_uid(room.id, room.type, uid);
         EXPECT_EQ(uid, -5);
       },
       kCovered},
      {"ClearMessageOfTheLargest", kDeleted,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message(room.id, room.type, false));
         EXPECT_EQ(s.count_in(room), 0);
       }},
      {"ClearMessageByTimestampOfHalf", "the older messages, which it deletes",
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_message_by_timestamp(room.middle.time, false));
         EXPECT_GT(s.count_in(room), 0);
         EXPECT_EQ(s.count("t_message where sent_time<" + std::to_string(room.middle.time)), 0);
       }},
      {"HistoryWithoutALimit", "the messages of the conversation, which it returns",
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_TRUE(
             s.store().get_history_message_by_time(room.id, room.type, "", 0, -1, page, true));
         EXPECT_EQ(page.size(), static_cast<std::size_t>(room.messages));
       }},
      {"HistoryPageOfAKindThatIsNotThere", kPassed,
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> page;
         EXPECT_FALSE(s.store().get_history_message_by_time(room.id, room.type, "CV:FileMsg", 0, 4,
                                                            page, true));
       }},
      {"GetMentionMessageAmongReadOnes", kPassed,
       [](FilledStore& s, const Room& room) {
         std::vector<MessageResponse> list;
         EXPECT_FALSE(s.store().get_mention_message(room.id, room.type, list));
       },
       kOlderRead},
      {"GetMaxTimeOfSentAmongCoveredMessages", kPassed, no_max_time(0), kCovered},
      {"GetMaxTimeOfReceivedAmongOwnMessages", kPassed, no_max_time(1), kOwn},
      {"GetMaxMessageIdOfSentAmongCoveredMessages", kPassed, no_max_message_id(0), kCovered},
      {"GetMaxMessageIdOfReceivedAmongOwnMessages", kPassed, no_max_message_id(1), kOwn},
      {"UpdateMessageStatusOfAll", kChanged,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_session set read_time=0;update t_message set read_status=0");
         EXPECT_TRUE(s.store().update_message_status(room.id, room.type));
         EXPECT_EQ(s.count_in(room, "read_status=1"), room.messages);
       },
       kReceived},
      // Its row and read time are gone by the time that the messages are marked.
      {"RemoveSession", kChanged,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().remove_session(room.id, room.type));
         EXPECT_EQ(s.session(room, "1"), "");
         EXPECT_EQ(s.count_in(room, "read_status=0"), 0);
       },
       kReceived},
      {"ClearSession", "the conversations, among which it finds those of the kinds",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().clear_session({Corvan::CV_SYSTEM}));
         EXPECT_EQ(s.count("t_session where session_type=5"), 0);
         EXPECT_EQ(s.count("t_message where session_type=5"), 0);
       }},
      {"ClearSessionOfKindsThatAreNotThere", kSessionsPassed,
       [](FilledStore& s, const Room&) {
         const int before = s.count("t_session");
         EXPECT_TRUE(s.store().clear_session(kNoKinds));
         EXPECT_EQ(s.count("t_session"), before);
       }},
      {"ListPageOfKindsThatAreNotThere", kSessionsPassed,
       [](FilledStore& s, const Room&) {
         std::vector<SessionInfo> page;
         EXPECT_FALSE(s.store().get_session_list_by_page(kNoKinds, 0, kPage, page));
       }},
      {"ClearUnreadAmongOwnMessages", kPassed,
       [](FilledStore& s, const Room& room) {
         EXPECT_TRUE(s.store().clear_unread(room.id, room.type));
         EXPECT_EQ(s.session(room, "unread_count,read_time"), "0|0");
       },
       kOwn},
      {"GetTotalUnreadCount", kSummed,
       [](FilledStore& s, const Room&) {
         int32_t unread = 0;
         EXPECT_TRUE(s.store().get_total_unread_count(unread));
         EXPECT_EQ(unread, 4 * s.count("t_session"));
       }},
      {"GetMessageCountOfTheLargest", kCounted,
       [](FilledStore& s, const Room& room) {
         int32_t count = 0;
         EXPECT_TRUE(s.store().get_message_count(room.id, room.type, count));
         EXPECT_EQ(count, room.messages);
       }},
      {"GetCateUnreadCount", kSummed, unread_of({}, true, "1")},
      {"GetCateUnreadCountWithoutTheMuted", kSummed, unread_of({}, false, "silence=0")},
      {"GetCateUnreadCountOfOneKind", kSummed,
       unread_of({Corvan::CV_GROUP}, true, "session_type=2")},
      {"GetCateUnreadCountOfTwoKindsWithoutTheMuted", kSummed,
       unread_of(kTwoKinds, false, "session_type in(1,2) and silence=0")},
      {"GetUnreadMentionCount", kSummed, unread_and_mentions_of({}, "1")},
      {"GetUnreadMentionCountOfTwoKinds", kSummed,
       unread_and_mentions_of(kTwoKinds, "session_type in(1,2)")},
      {"SyncUnreadOfAll", kCounted,
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set read_status=0");
         EXPECT_TRUE(s.store().sync_unread(room.id, room.type, 0));
         EXPECT_EQ(s.session(room, "unread_count"), std::to_string(room.messages));
       },
       kOlder},
      {"GetUnredMentionAmongReadOnes", kPassed,
       [](FilledStore& s, const Room& room) {
         int32_t unread = -1;
         int32_t mention = -1;
         EXPECT_TRUE(s.store().get_unred_mention(room.id, room.type, 0, unread, mention));
         EXPECT_EQ(unread, 0);
         EXPECT_EQ(mention, 0);
       },
       kOlderRead},
  };
}
INSTANTIATE_TEST_SUITE_P(Operations, Growing, testing::ValuesIn(growing()),
                         operation_name<GrowingOperation>);

}  // namespace
}  // namespace corvan_test
