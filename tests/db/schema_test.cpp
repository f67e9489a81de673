#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/cv_database.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDatabase;

// The only entry that inserts a row; every other one creates the table or index of its name.
constexpr const char* kVersionRow = "t_version_row";

class Schema : public StoreTest {
 protected:
  // Number, name, type in capitals, default and place in the primary key of each column.
  Rows columns(const std::string& table) const {
    return rows("select cid,name,upper(type),dflt_value,pk from pragma_table_info('" + table +
                "')");
  }

  // The column lists of the table's indexes and keys, sorted. Partial indexes are marked; the plans
  // of their statements show their conditions.
  Rows indexes(const std::string& table) const {
    return rows(
        "select (select group_concat(name) from (select name from pragma_index_info(l.name) "
        "order by seqno)) as columns,iif(l.\"unique\",'unique','')||iif(l.partial,'partial','') "
        "from pragma_index_list('" +
        table + "') l order by columns");
  }

  // SQLite's error text; empty if the statement runs.
  std::string failure(const std::string& sql) const {
    try {
      plant(sql);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "";
  }

  Rows whole_file() const {
    return rows(
        "select type,name,tbl_name,sql from sqlite_master order by name;"
        "select * from t_message; select * from t_session; select * from t_sync;"
        "select rowid,* from t_version");
  }
};

TEST_F(Schema, CreatesOnlyTheFourTables) {
  EXPECT_EQ(rows("select name from sqlite_master where type='table' and name not like 'sqlite_%' "
                 "order by name"),
            (Rows{"t_message", "t_session", "t_sync", "t_version"}));
}

TEST_F(Schema, MessageColumns) {
  EXPECT_EQ(
      columns("t_message"),
      (Rows{"0|id|INTEGER|NULL|1", "1|session_id|TEXT|''|0", "2|session_type|INTEGER|0|0",
            "3|object_name|TEXT|''|0", "4|content|TEXT|''|0", "5|sender|TEXT|''|0",
            "6|direction|INTEGER|0|0", "7|sent_status|INTEGER|0|0", "8|read_status|INTEGER|0|0",
            "9|is_mention|INTEGER|0|0", "10|sent_time|INTEGER|0|0", "11|client_uid|INTEGER|0|0",
            "12|server_uid|TEXT|''|0"}));
}

TEST_F(Schema, SessionColumns) {
  Rows found = columns("t_session");
  for (std::string& column : found) column.resize(column.rfind('|'));  // its key may be declared
  EXPECT_EQ(found,
            (Rows{"0|session_id|TEXT|''", "1|session_type|INTEGER|0", "2|title|TEXT|''",
                  "3|draft|TEXT|''", "4|is_top|INTEGER|0", "5|session_time|INTEGER|0",
                  "6|unread_count|INTEGER|0", "7|mention_count|INTEGER|0", "8|silence|INTEGER|0",
                  "9|latest_id|INTEGER|0", "10|read_time|INTEGER|0", "11|receipt_time|INTEGER|0"}));
}

TEST_F(Schema, SyncColumns) {
  EXPECT_EQ(columns("t_sync"),
            (Rows{"0|user_id|TEXT|''|1", "1|receive_time|INTEGER|0|0", "2|sent_time|INTEGER|0|0"}));
}

TEST_F(Schema, VersionColumns) {
  EXPECT_EQ(columns("t_version"), (Rows{"0|database_version|TEXT|''|0"}));
}

TEST_F(Schema, MessageIdIsTheRowId) {
  plant("insert into t_message(id) values(7)");
  EXPECT_EQ(rows("select rowid from t_message where id=7"), Rows{"7"});
}

TEST_F(Schema, IdOfADeletedMessageIsNotReused) {
  const int64_t first = save(NewMessage().client(1));
  ASSERT_TRUE(store().delete_message(std::vector<int64_t>{first}));
  EXPECT_EQ(save(NewMessage().client(2)), first + 1);
}

TEST_F(Schema, RefusesASecondRowOfOneConversation) {
  const std::string insert = "insert into t_session(session_id,session_type) values('room',2)";
  EXPECT_EQ(failure(insert), "");
  EXPECT_EQ(failure(insert),
            "UNIQUE constraint failed: t_session.session_id, t_session.session_type");
}

TEST_F(Schema, ConversationsOfEachKindMayShareAnId) {
  plant_session("room", 2, 1, -1);
  plant_session("room", 3, 1, -1);
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"2"});
}

TEST_F(Schema, RefusesASecondSyncRowOfOneUser) {
  EXPECT_EQ(failure("insert into t_sync values('me',1,2)"), "");
  EXPECT_EQ(failure("insert into t_sync values('me',3,4)"),
            "UNIQUE constraint failed: t_sync.user_id");
}

TEST_F(Schema, AcceptsDuplicateMessages) {
  const std::string insert =
      "insert into t_message(session_id,session_type,sender,client_uid,server_uid,sent_time) "
      "values('room',2,'u01',7,'S-1',100)";
  plant(insert);
  plant(insert);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"2"});
}

TEST_F(Schema, MessageIndexes) {
  EXPECT_EQ(indexes("t_message"),
            (Rows{"client_uid,session_type,id,session_id,sender,server_uid|", "sent_status|partial",
                  "sent_time|", "server_uid|",
                  "session_id,session_type,direction,sent_status,sent_time|partial",
                  "session_id,session_type,direction,sent_time,id,read_status,is_mention|partial",
                  "session_id,session_type,sent_time,id,direction,sent_status,object_name|",
                  "session_type,session_id|"}));
}

TEST_F(Schema, SessionIndexes) {
  EXPECT_EQ(indexes("t_session"),
            (Rows{"is_top,session_time,session_type|partial",
                  "latest_id,session_type,silence,unread_count,mention_count|",
                  "session_id,session_type|unique"}));
}

TEST_F(Schema, SyncIndexes) {
  EXPECT_EQ(indexes("t_sync"), Rows{"user_id|unique"});
}

TEST_F(Schema, EveryStatementHasTheNameOfItsObject) {
  Rows names;
  for (const auto& [name, sql] : CvDatabase::table_index()) {
    if (name != kVersionRow) names.push_back(name);
  }
  EXPECT_EQ(names, rows("select name from sqlite_master where name not like 'sqlite_%' "
                        "order by name"));
}

TEST_F(Schema, EachEntryCreatesTheObjectOfItsName) {
  const std::string other = folder.file("other");
  for (const auto& [name, sql] : CvDatabase::table_index()) {
    corvan_test::plant(other, sql);
    if (name == kVersionRow) {
      EXPECT_EQ(corvan_test::rows(other, "select count(*) from t_version"), Rows{"1"});
    } else {
      EXPECT_EQ(
          corvan_test::rows(other, "select count(*) from sqlite_master where name='" + name + "'"),
          Rows{"1"})
          << name;
    }
  }
}

TEST_F(Schema, EachEntryIsOneStatement) {
  for (const auto& [name, sql] : CvDatabase::table_index()) {
    EXPECT_GE(sql.find(';'), sql.size() - 1) << name;
  }
}

TEST_F(Schema, VersionRowComesLast) {
  EXPECT_EQ(CvDatabase::table_index().rbegin()->first, kVersionRow);
}

TEST_F(Schema, RunningTheSchemaAgainChangesNothing) {
  save(NewMessage());
  ASSERT_TRUE(store().set_sync_time(5, true));
  const Rows before = whole_file();
  for (const auto& [name, sql] : CvDatabase::table_index()) plant(sql);
  EXPECT_EQ(whole_file(), before);
  EXPECT_EQ(rows("select count(*) from t_version"), Rows{"1"});
}

TEST_F(Schema, VersionTextIsNotEmpty) {
  EXPECT_EQ(rows("select typeof(database_version),database_version<>'' from t_version"),
            Rows{"text|1"});
}

// ---- Columns that inserts omit ------------------------------------------------------------------

TEST_F(Schema, SingleSaveFillsEveryColumn) {
  const int64_t id = save(NewMessage().at(400).mention().client(6).named("S-1").status(2));
  EXPECT_EQ(rows("select * from t_message"),
            Rows{std::to_string(id) + "|room|2|CV:TxtMsg|hello|u01|1|2|0|1|400|6|S-1"});
}

TEST_F(Schema, BatchSaveLeavesNoMention) {
  std::vector<std::unique_ptr<Corvan::MessageResponse>> batch;
  batch.push_back(std::make_unique<Corvan::MessageResponse>());
  batch.back()->msg_id_ = -1;
  batch.back()->is_store_ = true;
  ASSERT_TRUE(store().save_message(batch));
  EXPECT_EQ(rows("select is_mention from t_message"), Rows{"0"});
}

TEST_F(Schema, NewSessionHasNoDraftAndNoReadOrReceiptTime) {
  ASSERT_TRUE(store().add_session("room", Corvan::CV_GROUP, 400, 7, "title", 1, 0));
  EXPECT_EQ(rows("select draft,is_top,read_time,receipt_time from t_session"), Rows{"|0|0|0"});
}

TEST_F(Schema, PinnedNewSessionHasEmptyTextsAndNoReadOrReceiptTime) {
  ASSERT_TRUE(store().set_is_top("room", Corvan::CV_GROUP, true, true));
  EXPECT_EQ(rows("select title,draft,read_time,receipt_time from t_session"), Rows{"||0|0"});
}

TEST_F(Schema, OmittedColumnsReadAsZeroAndEmpty) {
  plant("insert into t_session(session_id,session_type) values('room',2)");
  plant("insert into t_message(sender) values('u01')");
  Corvan::Session session;
  ASSERT_TRUE(store().load_session(session, "room", 2));
  EXPECT_EQ(session.title_ + session.draft_, "");
  EXPECT_EQ(session.latest_id_, 0);
  Corvan::MessageResponse message;
  message.msg_id_ = 1;
  ASSERT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(message.session_id_ + message.content_ + message.server_uid_, "");
  EXPECT_EQ(message.sent_time_, 0);
}

// ---- Value codes --------------------------------------------------------------------------------

TEST_F(Schema, DirectionIsOneForReceivedAndZeroForOwn) {
  save(NewMessage());
  save(NewMessage().own(1));
  EXPECT_EQ(rows("select direction from t_message order by id"), (Rows{"1", "0"}));
}

TEST_F(Schema, OwnMessageIsStoredAsRead) {
  save(NewMessage().own(1));
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
}

TEST_F(Schema, ReceivedMessageOfAChatRoomIsStoredAsRead) {
  save(NewMessage().in("hall", Corvan::CV_CHATROOM));
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
}

TEST_F(Schema, OtherReceivedMessageIsStoredAsUnreadWhateverTheArgument) {
  NewMessage message;
  message.read_status = 1;
  save(message);
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

TEST_F(Schema, MessageBeingSentHasFailedAfterReopening) {
  save(NewMessage().own(1).status(1));
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select sent_status from t_message"), Rows{"2"});
}

TEST_F(Schema, OtherSentStatusesSurviveReopening) {
  for (const int32_t status : {0, 2, 3}) save(NewMessage().own(status + 1).status(status));
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select sent_status from t_message order by id"), (Rows{"0", "2", "3"}));
}

TEST_F(Schema, MentionListIgnoresMessagesWrittenByTheStore) {
  save(NewMessage().mention());
  save(NewMessage().own(1).mention());
  std::vector<Corvan::MessageResponse> found;
  EXPECT_FALSE(store().get_mention_message("room", Corvan::CV_GROUP, found));
  EXPECT_TRUE(found.empty());
}

TEST_F(Schema, RecountIgnoresMessagesWrittenByTheStore) {
  save(NewMessage().mention());
  save(NewMessage().own(1).mention());
  int32_t unread = 7;
  int32_t mention = 7;
  EXPECT_TRUE(store().get_unred_mention("room", 2, 0, unread, mention));
  EXPECT_EQ(unread, 0);
  EXPECT_EQ(mention, 0);
}

TEST_F(Schema, MentionListAndRecountFindDirectionTwo) {
  plant(
      "insert into t_message(session_id,session_type,direction,is_mention,sent_time) "
      "values('room',2,2,1,100)");
  std::vector<Corvan::MessageResponse> found;
  EXPECT_TRUE(store().get_mention_message("room", Corvan::CV_GROUP, found));
  EXPECT_EQ(found.size(), 1U);
  int32_t unread = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unred_mention("room", 2, 0, unread, mention));
  EXPECT_EQ(unread, 1);
  EXPECT_EQ(mention, 1);
}

TEST_F(Schema, LoadersReadTheDraftAndItsGetterDoesNot) {
  plant_session("room", 2, 100, -1);
  ASSERT_TRUE(store().set_message_draft("room", Corvan::CV_GROUP, "to do"));
  Corvan::Session session;
  EXPECT_TRUE(store().load_session(session, "room", 2));
  EXPECT_EQ(session.draft_, "to do");
  std::vector<Corvan::Session> list;
  std::string kinds = "2";
  ASSERT_TRUE(store().load_session(list, kinds, 0, 10, false));
  EXPECT_EQ(list.front().draft_, "to do");
  std::string draft = "kept";
  EXPECT_FALSE(store().get_message_draft("room", Corvan::CV_GROUP, draft));
  EXPECT_EQ(draft, "kept");
}

TEST_F(Schema, SecondSyncTimesOverwriteTheFirst) {
  ASSERT_TRUE(store().set_sync_time(1000, true));
  ASSERT_TRUE(store().set_sync_time(500, false));
  ASSERT_TRUE(store().set_sync_time(2000, true));
  EXPECT_EQ(rows("select * from t_sync"), Rows{"me|2000|500"});
}

}  // namespace
}  // namespace corvan_test
