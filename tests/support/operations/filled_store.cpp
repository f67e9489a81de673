#include "tests/support/operations/filled_store.h"

#include <filesystem>

#include "base/cv_database.h"

namespace corvan_test {

std::string quoted(const std::string& text) {
  return "'" + text + "'";
}

Room new_room() {
  Room room;
  room.id = "new";
  return room;
}

namespace {

// ---- The rows -----------------------------------------------------------------------------------

constexpr int kNamed = 8;  // the conversations that filled_store.h names

struct Planted {
  std::string session_id;
  int type = Corvan::CV_GROUP;
  int place = 0;  // counted from its conversation's newest message
  int direction = 1;
  int sent_status = 0;
};

// The message that has this many newer ones in the store.
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

// The files do not outlive a test, so writes need not be synced.
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
    fill(large_, kFactor);
  }

  std::string small() const { return small_.file("corvan"); }
  std::string large() const { return large_.file("corvan"); }

 private:
  static void fill(const TemporaryFolder& place, int factor) {
    std::string tables;
    std::string indexes;  // faster to create after the messages
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

std::string where(const Room& room) {
  return " where session_id=" + quoted(room.id) + " and session_type=" + std::to_string(room.type);
}

const FilledFiles& files() {
  static const FilledFiles files;
  return files;
}

}  // namespace

// ---- A copy of a store --------------------------------------------------------------------------

void FilledStore::plant(const std::string& sql) const {
  corvan_test::plant(file(), kWithoutSync + sql);
}

std::string FilledStore::row(const std::string& sql) const {
  const Rows result = rows(sql);
  return result.empty() ? "" : result.front();
}

std::string FilledStore::session(const Room& room, const std::string& columns) const {
  return row("select " + columns + " from t_session" + where(room));
}

std::string FilledStore::message(int64_t id, const std::string& columns) const {
  return row("select " + columns + " from t_message where id=" + std::to_string(id));
}

int FilledStore::count(const std::string& from) const {
  return std::stoi(row("select count(*) from " + from));
}

int FilledStore::count_in(const Room& room, const std::string& condition) const {
  return count("t_message" + where(room) + " and " + condition);
}

void FilledStore::SetUp() {
  set_clock(kAfterAll + 1);
}

void FilledStore::open_small() {
  open_copy(files().small());
}

void FilledStore::open_large() {
  open_copy(files().large());
}

void FilledStore::open_copy(const std::string& filled) {
  store().close_db();
  std::filesystem::remove(file());
  std::filesystem::copy_file(filled, file());
  ASSERT_TRUE(open());
  store().execute_none_query(kWithoutSync);
}

StoredMessage FilledStore::message_at(const std::string& id, int offset) const {
  const std::string from = " from t_message where session_id=" + quoted(id) +
                           " order by id desc limit 1 offset " + std::to_string(offset);
  StoredMessage m;
  m.id = std::stoll(row("select id" + from));
  m.time = std::stoll(row("select sent_time" + from));
  m.uid = row("select server_uid" + from);
  return m;
}

Room FilledStore::room(const std::string& id) const {
  Room room;
  room.id = id;
  room.messages = count_in(room);
  room.newest = message_at(id, 0);
  room.middle = message_at(id, room.messages / 2);
  return room;
}

StepCounts FilledStore::steps_of(const std::function<void(FilledStore&, const Room&)>& run,
                                 const std::string& room_id) {
  const Room target = room(room_id);
  take_steps();
  run(*this, target);
  return take_steps();
}

Corvan::UpdateValue key_of(const FilledStore& s, const Room& room, int64_t id) {
  Corvan::UpdateValue value;
  value.session_id_ = room.id;
  value.session_type_ = room.type;
  value.client_uid_ = std::stoll(s.message(id, "client_uid"));
  value.sender_ = s.message(id, "sender");
  return value;
}

}  // namespace corvan_test
