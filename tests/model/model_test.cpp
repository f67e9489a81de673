// Random sequences of operations, run in the store and in the model. Equal seeds give equal
// sequences everywhere: an operation is a number, and all that it picks, its arguments too, follows
// from that number and from the rows that the model holds when its turn comes.
//
// Environment: CORVAN_MODEL_SEED (first seed), CORVAN_MODEL_SEQUENCES, CORVAN_MODEL_LENGTH.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "tests/model/model.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using namespace std::string_literals;

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int64_t kMaxLong = std::numeric_limits<int64_t>::max();
constexpr int64_t kMinLong = std::numeric_limits<int64_t>::min();
constexpr int64_t kWide = int64_t{1} << 32;

// ---- Values as text: what is compared and printed -----------------------------------------------

std::string text(int64_t value) {
  return std::to_string(value);
}
std::string text(int32_t value) {
  return std::to_string(value);
}
std::string text(uint32_t value) {
  return std::to_string(value);
}
std::string text(SessionType value) {
  return std::to_string(int32_t{value});
}
std::string text(bool value) {
  return value ? "true" : "false";
}

std::string text(const std::string& value) {
  std::string quoted = "\"";
  for (const char c : value) {
    if (c == '\0') {
      quoted += "\\0";
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string text(const MessageResponse& m);
std::string text(const Session& s);
std::string text(const SessionInfo& s);
std::string text(const UpdateValue& u);
template <typename Element>
std::string text(const std::vector<Element>& elements);

template <typename... Values>
std::string joined(const Values&... values) {
  std::string all;
  ((all += (all.empty() ? "" : ", ") + text(values)), ...);
  return all;
}

std::string text(const MessageResponse& m) {
  return "{" +
         joined(m.session_id_, m.sender_, m.object_name_, m.content_, m.server_uid_, m.msg_id_,
                m.session_type_, m.read_status_, m.sent_status_, m.unread_count_, m.mention_count_,
                m.is_receive_, m.is_store_, m.is_offline_, m.is_command_, m.sync_time_,
                m.sent_time_, m.client_uid_) +
         "}";
}

std::string text(const Session& s) {
  return "{" +
         joined(s.session_id_, s.title_, s.draft_, s.content_, s.object_name_, s.sender_,
                s.server_uid_, s.session_type_, s.is_top_, s.unread_count_, s.silence_,
                s.mention_count_, s.is_recieve_, s.read_status_, s.sent_status_, s.session_time_,
                s.latest_id_) +
         "}";
}

std::string text(const SessionInfo& s) {
  return "{" +
         joined(s.session_id_, s.title_, s.draft_, s.session_type_, s.is_top_, s.silence_,
                s.unread_count_, s.mention_count_, s.session_time, s.message_) +
         "}";
}

std::string text(const UpdateValue& u) {
  return "{" +
         joined(u.session_id_, u.sender_, u.server_uid_old_, u.server_uid_new_, u.session_type_,
                u.msg_id_, u.sent_time_, u.client_uid_) +
         "}";
}

template <typename Element>
std::string text(const std::vector<Element>& elements) {
  std::string all;
  for (const Element& each : elements) all += (all.empty() ? "" : ", ") + text(each);
  return "[" + all + "]";
}

template <typename... Values>
std::string text(const std::tuple<Values...>& values) {
  return std::apply([](const auto&... each) { return joined(each...); }, values);
}

// ---- Rows as text: what a second connection reads -----------------------------------------------

constexpr const char* kAllRows =
    "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id;"
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
    "silence,latest_id,read_time,receipt_time from t_session order by rowid;"
    "select user_id,receive_time,sent_time from t_sync order by user_id";

void add_column(std::string& row, const std::string& value) {
  row += "|" + value;
}
void add_column(std::string& row, int64_t value) {
  row += "|" + std::to_string(value);
}

template <typename... Columns>
std::string row_of(const std::string& first, const Columns&... columns) {
  std::string row = first;
  (add_column(row, columns), ...);
  return row;
}

Rows rows_of(const Tables& tables) {
  Rows rows;
  for (const auto& [id, m] : tables.messages) {
    rows.push_back(row_of(std::to_string(id), m.session_id, m.session_type, m.object_name,
                          m.content, m.sender, m.direction, m.sent_status, m.read_status,
                          m.is_mention, m.sent_time, m.client_uid, m.server_uid));
  }
  for (const SessionRow& s : tables.sessions) {
    rows.push_back(row_of(s.session_id, s.session_type, s.title, s.draft, s.is_top, s.session_time,
                          s.unread_count, s.mention_count, s.silence, s.latest_id, s.read_time,
                          s.receipt_time));
  }
  for (const auto& [user, s] : tables.syncs) {
    rows.push_back(row_of(user, s.receive_time, s.sent_time));
  }
  return rows;
}

std::string lines(const Rows& rows) {
  std::string all;
  for (const std::string& row : rows) all += "\n    " + row;
  return all;
}

std::string sql_text(const std::string& value) {
  std::string quoted = "'";
  for (const char c : value) quoted += c == '\'' ? "''"s : std::string(1, c);
  return quoted + "'";
}

std::string sql_text(int64_t value) {
  return std::to_string(value);
}

template <typename... Values>
std::string joined_sql(const Values&... values) {
  std::string all;
  ((all += (all.empty() ? "" : ",") + sql_text(values)), ...);
  return all;
}

// A text as a row can hold it.
std::string row_text(const std::string& value) {
  return value.substr(0, value.find('\0'));
}

// ---- One operation ------------------------------------------------------------------------------

// An operation's name, and its call on the store or on the model.
#define CALL(name) #name, [](auto& target, auto&... args) { return target.name(args...); }

class Step {
 public:
  Step(CvDbSingleton& store, Model& model, const std::string& folder, uint64_t number)
      : store_(store), model_(model), folder_(folder), random_(number) {
    choose_conversation();
  }

  // Runs it in both, each with its own copy of the arguments.
  template <typename Call, typename... Args>
  void both(const char* name, Call call, const std::tuple<Args...>& args) {
    call_ = name + "("s + text(args) + ")";
    actual_ = outcome(store_, call, args);
    expected_ = outcome(model_, call, args);
  }

  // Behind the store's back; a transaction of the store would keep it out.
  void plant_messages();
  void plant_session();

  void open(const std::string& user);
  void close();
  void set_time();

  // The operation with its arguments, and what became of it: the result, then each argument.
  const std::string& call() const { return call_; }
  const std::string& actual() const { return actual_; }
  const std::string& expected() const { return expected_; }

  // Picks

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool one_in(std::size_t count) { return below(count) == 0; }
  bool flag() { return one_in(2); }
  template <typename Value>
  Value of(std::initializer_list<Value> values) {
    return *(values.begin() + below(values.size()));
  }
  template <typename Pick>
  auto some(Pick pick) {
    std::vector<decltype(pick())> values;
    for (std::size_t left = below(5); left > 0; --left) {
      values.push_back(pick());
      if (one_in(4)) values.push_back(values.back());
    }
    return values;
  }

  // Mostly of the one conversation that the operation is about.
  std::string room() { return one_in(5) ? any_room() : room_; }
  SessionType kind() { return one_in(5) ? any_kind() : kind_; }
  int32_t kind_number() { return kind(); }
  std::vector<SessionType> kinds() {
    return some([this] { return kind(); });
  }
  // For the list: kinds of which the order of the rows is known.
  std::vector<SessionType> listed_kinds();
  std::string kind_list();

  int64_t id();
  int64_t planted_id();
  std::vector<int64_t> ids() {
    return some([this] { return id(); });
  }
  std::string id_list();

  int64_t time();
  // Of a message to save; from the clock when below 1.
  int64_t new_time() { return one_in(3) ? of({int64_t{0}, int64_t{-1}}) : time(); }
  // Half the time that of the conversation.
  int64_t receipt_time() {
    int64_t receipt = time();
    if (flag()) model_.get_receipt_time(room_, kind_, receipt);
    return receipt;
  }
  int64_t cursor();
  std::string server_uid() {
    if (!one_in(5)) return of({""s, "1"s, "2"s, "3"s});
    return of({"o'k"s, "o''k"s, "'"s, "1\0x"s, "\0x"s, "none"s});
  }
  // A list of server uids as a caller pastes them, well quoted or not.
  std::string server_uid_list();
  int64_t client_uid() { return like_ ? like_->client_uid : of({0, 0, -1, 1, 1, 2, 2}); }
  std::string sender() {
    return like_ ? like_->sender : of({"me"s, "me"s, "bob"s, "you"s, ""s, "me\0x"s});
  }
  std::string object_name() {
    if (!one_in(6)) return of({"CV:TxtMsg"s, "CV:QbNtf"s, ""s});
    return of({"o'k"s, "o''k"s, "CV:QbNtf\0x"s, "CV:TxtMsg\0x"s, "'"s});
  }
  std::string body() {
    if (!one_in(4)) return of({"hello"s, ""s, "it's"s});
    return of({"na\xc3\xafve \xe6\xbc\xa2"s, "a\0b"s, "\0b"s, std::string(300, 'x')});
  }
  std::string user() { return of({"me"s, "me"s, "you"s, ""s, "me\0x"s}); }
  int32_t code() {
    if (one_in(8)) return of({kMaxInt, kMinInt, -1, 9});
    return of({0, 0, 1, 2, 3});
  }
  int32_t count() { return of({0, 1, 1, 2, 3, 3, 1000000, -1, kMaxInt, kMinInt}); }
  // A stored integer, now and then beyond 32 bits.
  int64_t wide(std::initializer_list<int64_t> values) {
    return one_in(6)
               ? of({kWide, kWide, kWide + 1, int64_t{kMaxInt}, int64_t{kMinInt}, int64_t{-1}})
               : of(values);
  }

  MessageResponse message();
  std::vector<MessageResponse> messages() {
    if (!one_in(4)) return {};
    return some([this] { return message(); });
  }
  Session session();
  std::vector<Session> sessions() {
    if (!one_in(3)) return {};
    return some([this] { return session(); });
  }
  SessionInfo session_info();
  UpdateValue update();
  std::vector<UpdateValue> updates() {
    return some([this] { return update(); });
  }

  Model& model() { return model_; }

 private:
  std::string any_room() {
    if (!one_in(6)) return of({"room"s, "room"s, "peer"s});
    return of({""s, "o'k"s, "caf\xc3\xa9"s, "room\0x"s, "\0x"s, "nobody"s});
  }
  SessionType any_kind() {
    if (!one_in(6)) return SessionType(of({1, 1, 2, 3}));
    return SessionType(static_cast<int32_t>(below(10)));
  }
  void choose_conversation();

  // A row that is stored, by preference one of the conversation; null when there is none.
  const MessageRow* stored_message();
  const SessionRow* stored_session();

  template <typename Target, typename Call, typename... Args>
  static std::string outcome(Target& target, Call call, std::tuple<Args...> args) {
    std::string result;
    std::apply(
        [&](auto&... each) {
          if constexpr (std::is_void_v<decltype(call(target, each...))>) {
            call(target, each...);
          } else {
            result = text(call(target, each...));
          }
        },
        args);
    return result + " -> " + text(args);
  }

  CvDbSingleton& store_;
  Model& model_;
  const std::string& folder_;
  std::mt19937_64 random_;
  std::string room_;
  SessionType kind_ = SessionType(0);
  std::optional<MessageRow> like_;  // a stored message that the operation takes values from
  std::string call_;
  std::string actual_;
  std::string expected_;
};

// Often one that is stored.
void Step::choose_conversation() {
  room_ = any_room();
  kind_ = any_kind();
  const MessageRow* message = one_in(3) ? stored_message() : nullptr;
  const SessionRow* session = one_in(4) ? stored_session() : nullptr;
  if (message != nullptr) {
    like_ = *message;
    room_ = message->session_id;
    kind_ = SessionType(static_cast<int32_t>(message->session_type));
  } else if (session != nullptr) {
    room_ = session->session_id;
    kind_ = SessionType(static_cast<int32_t>(session->session_type));
  }
}

const MessageRow* Step::stored_message() {
  const auto& rows = model_.tables().messages;
  const MessageRow* row = nullptr;
  for (int tries = 0; tries < 2 && !rows.empty(); ++tries) {
    row = &std::next(rows.begin(), static_cast<std::ptrdiff_t>(below(rows.size())))->second;
    if (row->session_id == room_ && row->session_type == kind_) break;
  }
  return row;
}

const SessionRow* Step::stored_session() {
  const auto& rows = model_.tables().sessions;
  const SessionRow* row = nullptr;
  for (int tries = 0; tries < 2 && !rows.empty(); ++tries) {
    row = &rows[below(rows.size())];
    if (row->session_id == room_ && row->session_type == kind_) break;
  }
  return row;
}

int64_t Step::id() {
  if (like_ && flag()) return like_->id;
  const MessageRow* row = one_in(3) ? nullptr : stored_message();
  if (row != nullptr) {
    // Now and then what the 32-bit reader makes of it.
    return one_in(8) ? static_cast<int32_t>(static_cast<uint32_t>(row->id)) : row->id;
  }
  return of({int64_t{0}, int64_t{0}, int64_t{-1}, int64_t{-1}, int64_t{1}, int64_t{2}, int64_t{3},
             int64_t{5}, int64_t{99}, int64_t{kMaxInt} + 1, kWide + 1, kWide + 2, kMaxLong});
}

int64_t Step::time() {
  if (like_ && flag()) {
    return one_in(3) && like_->sent_time > kMinLong ? like_->sent_time - 1 : like_->sent_time;
  }
  const MessageRow* message = one_in(4) ? stored_message() : nullptr;
  if (message != nullptr) return message->sent_time;
  const SessionRow* session = one_in(4) ? stored_session() : nullptr;
  if (session != nullptr) {
    return of({session->session_time, session->read_time, session->receipt_time});
  }
  if (one_in(8)) return of({kMaxLong, kMaxLong - 1, kMinLong, int64_t{-1}});
  return of({0, 1, 2, 3, 5, 100, 100, 200, 300, 1000000});
}

std::string Step::id_list() {
  std::string list;
  for (const int64_t each : ids()) list += (list.empty() ? "" : ",") + std::to_string(each);
  if (one_in(12)) list += of({","s, "x"s, "'"s, "\0"s});
  return list;
}

std::vector<SessionType> Step::listed_kinds() {
  std::vector<SessionType> listed = kinds();
  listed.push_back(SessionType(of({1, 2, 3})));
  if (one_in(8)) listed.clear();
  return listed;
}

std::string Step::kind_list() {
  std::string list;
  CvDbSingleton::get_instance()->join_type(listed_kinds(), list);
  if (one_in(12)) list += of({","s, "x"s, "\0"s});
  return list;
}

int64_t Step::cursor() {
  const SessionRow* row = one_in(3) ? nullptr : stored_session();
  if (row == nullptr) return of({int64_t{0}, int64_t{0}, int64_t{-1}, time()});
  return one_in(3) && row->session_time < kMaxLong ? row->session_time + 1 : row->session_time;
}

std::string Step::server_uid_list() {
  std::string list;
  for (const std::string& uid : some([this] { return server_uid(); })) {
    list += (list.empty() ? "" : ",") + (one_in(6) ? "'" + uid + "'" : sql_text(uid));
  }
  if (one_in(12)) list += of({","s, "nonsense"s, "'"s, "\0"s});
  return list;
}

MessageResponse Step::message() {
  MessageResponse m;
  m.session_id_ = room();
  m.sender_ = sender();
  m.object_name_ = object_name();
  m.content_ = body();
  m.server_uid_ = server_uid();
  m.msg_id_ = of({int64_t{-1}, int64_t{-1}, int64_t{-1}, kMinLong, id()});
  m.session_type_ = kind();
  m.read_status_ = code();
  m.sent_status_ = code();
  m.unread_count_ = code();
  m.mention_count_ = code();
  m.is_receive_ = flag();
  m.is_store_ = !one_in(4);
  m.is_offline_ = flag();
  m.is_command_ = flag();
  m.sync_time_ = flag();
  m.sent_time_ = time();
  m.client_uid_ = client_uid();
  return m;
}

Session Step::session() {
  Session s;
  s.session_id_ = room();
  s.title_ = body();
  s.draft_ = body();
  s.content_ = body();
  s.object_name_ = object_name();
  s.sender_ = sender();
  s.server_uid_ = server_uid();
  s.session_type_ = kind();
  s.is_top_ = code();
  s.unread_count_ = code();
  s.silence_ = code();
  s.mention_count_ = code();
  s.is_recieve_ = code();
  s.read_status_ = code();
  s.sent_status_ = code();
  s.session_time_ = time();
  s.latest_id_ = id();
  return s;
}

SessionInfo Step::session_info() {
  SessionInfo s;
  s.session_id_ = room();
  s.title_ = body();
  s.draft_ = body();
  s.session_type_ = kind();
  s.is_top_ = code();
  s.silence_ = code();
  s.unread_count_ = code();
  s.mention_count_ = code();
  s.session_time = time();
  s.message_ = message();
  return s;
}

UpdateValue Step::update() {
  UpdateValue u;
  u.session_id_ = room();
  u.sender_ = sender();
  u.server_uid_old_ = of({""s, ""s, "1"s, "\0x"s});
  u.server_uid_new_ = server_uid();
  u.session_type_ = kind();
  u.msg_id_ = of({int64_t{-1}, int64_t{0}, id(), id()});
  u.sent_time_ = time();
  u.client_uid_ = client_uid();
  const MessageRow* row = flag() ? stored_message() : nullptr;
  if (row != nullptr) {
    u.session_id_ = row->session_id;
    u.session_type_ = static_cast<int32_t>(row->session_type);
    u.client_uid_ = row->client_uid;
    u.sender_ = row->sender;
  }
  return u;
}

// One message, or more mentions than their page holds.
void Step::plant_messages() {
  call_ = "plant_messages(";
  const bool mentions = one_in(5);
  const std::size_t number = mentions ? 16 : 1;
  std::string sql;
  for (std::size_t i = 0; i < number; ++i) {
    MessageRow row;
    row.id = mentions ? 100 + static_cast<int64_t>(below(1000)) : planted_id();
    row.session_id = row_text(mentions ? room_ : room());
    row.session_type = mentions ? kind_ : kind();
    row.object_name = of({"CV:TxtMsg"s, "CV:QbNtf"s, "o'k"s});
    row.content = of({"copied"s, "caf\xc3\xa9"s});
    row.sender = of({"me"s, "bob"s});
    row.direction = mentions ? 2 : wide({0, 1, 2});
    row.sent_status = wide({0, 0, 1, 2, 3});
    row.read_status = wide({0, 0, 0, 1, 2});
    row.is_mention = mentions ? of({1, 1, 1, 1, 0}) : wide({0, 1, 1, 2});
    row.sent_time = time();
    row.client_uid = client_uid();
    row.server_uid = of({""s, "1"s, "2"s, "3"s, "o'k"s, "'"s});
    const std::string values =
        joined_sql(row.id, row.session_id, row.session_type, row.object_name, row.content,
                   row.sender, row.direction, row.sent_status, row.read_status, row.is_mention,
                   row.sent_time, row.client_uid, row.server_uid);
    call_ += (i > 0 ? "; " : "") + values;
    sql +=
        "insert or replace into t_message(id,session_id,session_type,object_name,content,sender,"
        "direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) values(" +
        values + ");";
    if (!model_.in_transaction()) model_.plant(row);
  }
  call_ += ")";
  if (!model_.in_transaction()) plant(folder_ + "corvan", "begin;" + sql + "commit");
}

int64_t Step::planted_id() {
  if (one_in(20)) return kMaxLong;
  if (one_in(3)) return of({int64_t{kMaxInt}, int64_t{kMaxInt} + 1, kWide + 1, kWide + 2});
  return of(
      {int64_t{-1}, int64_t{-1}, int64_t{0}, int64_t{0}, static_cast<int64_t>(below(10)), id()});
}

void Step::plant_session() {
  SessionRow row;
  row.session_id = flag() ? row_text(room()) : of({"a"s, "b"s, "c"s});
  row.session_type = kind();
  row.title = row_text(body());
  row.draft = of({""s, ""s, "draft"s});
  row.is_top = of({0, 0, 0, 1, 1, 2, 2, -1});
  row.session_time = one_in(2) ? time() : static_cast<int64_t>(below(1000));
  row.unread_count = wide({0, 1, 2, 5});
  row.mention_count = wide({0, 1, 2});
  row.silence = wide({0, 0, 1, 2});
  row.latest_id = of({int64_t{-1}, int64_t{0}, id(), id()});
  row.read_time = time();
  row.receipt_time = time();
  if (like_) {
    row.session_id = like_->session_id;
    row.session_type = like_->session_type;
    row.latest_id = like_->id;
  }
  const std::string values =
      joined_sql(row.session_id, row.session_type, row.title, row.draft, row.is_top,
                 row.session_time, row.unread_count, row.mention_count, row.silence, row.latest_id,
                 row.read_time, row.receipt_time);
  call_ = "plant_session(" + values + ")";
  if (model_.in_transaction()) return;
  plant(folder_ + "corvan",
        "insert or replace into t_session(session_id,session_type,title,draft,is_top,session_time,"
        "unread_count,mention_count,silence,latest_id,read_time,receipt_time) values(" +
            values + ")");
  model_.plant(row);
}

// Another user's store is opened after a close only.
void Step::open(const std::string& user) {
  if (user != model_.user()) close();
  call_ = "open(" + text(user) + ")";
  actual_ = text(store_.init_open_db(cvrtc::Pathname(folder_), "", user));
  expected_ = text(model_.open(user));
}

void Step::close() {
  call_ = "close()";
  store_.close_db();
  model_.close();
}

void Step::set_time() {
  const int64_t now =
      of({int64_t{1000000}, int64_t{1000001}, int64_t{250}, int64_t{4}, int64_t{0}});
  call_ = "set_clock(" + text(now) + ")";
  set_clock(now);
}

// The batch save on records that can be copied, a duplicate among them being a record of its own.
template <typename Target>
bool save_batch(Target& target, std::vector<MessageResponse>& records) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (const MessageResponse& each : records) {
    batch.push_back(std::make_unique<MessageResponse>(each));
  }
  const bool result = target.save_message(batch);
  for (std::size_t i = 0; i < records.size(); ++i) records[i] = *batch[i];
  return result;
}

// The caller's statements: the store takes their text, the model the name of their column.
std::string statement(CvDbSingleton&, const std::string& column) {
  return "update t_message set " + column + "=? where id=?";
}
std::string statement(Model&, const std::string& column) {
  return column;
}
std::string session_statement(CvDbSingleton&, const std::string& column) {
  return "update t_session set " + column + "=7 where session_id=? and session_type=?";
}
std::string session_statement(Model&, const std::string& column) {
  return column;
}

struct Operation {
  std::size_t weight;
  void (*run)(Step& s);
};

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      // Around the operations
      {6, [](Step& s) { s.plant_messages(); }},
      {10, [](Step& s) { s.plant_session(); }},
      {1, [](Step& s) { s.close(); }},
      {2, [](Step& s) { s.open(s.model().user()); }},
      {3, [](Step& s) { s.close(), s.open(s.user()); }},
      {2, [](Step& s) { s.set_time(); }},
      {1, [](Step& s) { s.both(CALL(clear_sendstatus), std::tuple{s.flag()}); }},

      // Transactions and sync times
      {3, [](Step& s) { s.both(CALL(start_transaction), std::tuple<>{}); }},
      {3, [](Step& s) { s.both(CALL(commit_transaction), std::tuple<>{}); }},
      {3,
       [](Step& s) {
         s.both(CALL(set_sync_time), std::tuple{s.time(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(
             "get_sync_time",
             [](auto& target, int64_t& received, int64_t& sent, bool both) {
               return target.get_sync_time(&received, both ? &sent : nullptr);
             },
             std::tuple{s.time(), s.time(), s.flag()});
       }},

      // Saving messages
      {20,
       [](Step& s) {
         s.both(CALL(save_message),
                std::tuple{s.room(), s.kind(), s.object_name(), s.sender(), s.body(), s.flag(),
                           s.code(), s.code(), s.flag(), s.new_time(), s.client_uid(),
                           s.server_uid(), s.one_in(4), s.one_in(4), s.flag()});
       }},
      {4,
       [](Step& s) {
         s.both(
             "save_message",
             [](auto& target, auto& records) { return save_batch(target, records); },
             std::tuple{s.some([&s] { return s.message(); })});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(is_message_exist), std::tuple{s.room(), s.kind(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(
             "is_message_exist",
             [](auto& target, const std::string& list, std::vector<std::string>& uids) {
               const auto before = static_cast<std::ptrdiff_t>(uids.size());
               const bool result = target.is_message_exist(list, uids);
               std::sort(uids.begin() + before, uids.end());
               return result;
             },
             std::tuple{s.server_uid_list(),
                        s.one_in(3) ? std::vector{"before"s} : std::vector<std::string>{}});
       }},
      {3, [](Step& s) { s.both(CALL(is_message_exist), std::tuple{s.updates()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(set_send_time_for_dup_msg), std::tuple{s.id(), s.time(), s.server_uid()});
       }},
      {4, [](Step& s) { s.both(CALL(set_send_time_for_dup_msg), std::tuple{s.updates()}); }},
      {2, [](Step& s) { s.both(CALL(is_message_exist), std::tuple{s.server_uid()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(is_message_exist), std::tuple{s.client_uid(), s.sender(), s.room(),
                                                   s.kind_number(), s.id(), s.server_uid()});
       }},

      // Message state
      {5,
       [](Step& s) {
         s.both(CALL(set_send_time),
                std::tuple{s.id(), s.new_time(), s.server_uid(), s.room(), s.kind(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(update_sent_status), std::tuple{s.id(), s.code()});
       }},
      {5,
       [](Step& s) {
         s.both(CALL(set_read_status), std::tuple{s.id(), s.code()});
       }},
      {8,
       [](Step& s) {
         s.both(CALL(update_message_receipt_status),
                std::tuple{s.room(), s.kind(), s.receipt_time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_message_content), std::tuple{s.id(), s.body(), s.object_name()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_client_uid), std::tuple{s.room(), s.kind(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_client_uid), std::tuple{s.id(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_sendtime), std::tuple{s.id(), s.time(), s.server_uid(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(
             "common_message_int",
             [](auto& target, int64_t id, int32_t value, const std::string& column) {
               return target.common_message_int(id, value, statement(target, column));
             },
             std::tuple{
                 s.id(), s.code(),
                 s.of({"direction"s, "is_mention"s, "read_status"s, "sent_status"s, "nonsense"s})});
       }},
      {1,
       [](Step& s) {
         s.both(
             "common_message_text",
             [](auto& target, int64_t id, const std::string& value, const std::string& column) {
               return target.common_message_text(id, value, statement(target, column));
             },
             std::tuple{s.id(), s.sender(),
                        s.of({"object_name"s, "sender"s, "server_uid"s, "nonsense"s})});
       }},

      // Deleting and clearing messages
      {4, [](Step& s) { s.both(CALL(delete_message), std::tuple{s.ids()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(delete_message),
                std::tuple{s.room(), s.kind(), s.some([&s] { return s.server_uid(); })});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(clear_message), std::tuple{s.room(), s.kind(), s.one_in(4)});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(clear_message_by_timestamp),
                std::tuple{s.of({int64_t{0}, int64_t{2}, int64_t{5}, s.time()}), s.one_in(4)});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(delete_message), std::tuple{s.room(), s.kind_number()});
       }},

      // Message queries
      {1, [](Step& s) { s.both(CALL(get_message_by_id), std::tuple{s.message()}); }},
      {2, [](Step& s) { s.both(CALL(get_message_by_uid), std::tuple{s.message()}); }},
      {6,
       [](Step& s) {
         s.both(CALL(get_history_message_by_object_name),
                std::tuple{s.room(), s.kind(), s.some([&s] { return s.object_name(); }),
                           s.flag() ? 0 : s.id(), s.count(), s.messages(), s.flag()});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(get_history_message_by_time),
                std::tuple{s.room(), s.kind(), s.object_name(), s.flag() ? 0 : s.id(), s.count(),
                           s.messages(), s.flag()});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(get_mention_message), std::tuple{s.room(), s.kind(), s.messages()});
       }},
      {6,
       [](Step& s) {
         s.both(CALL(get_matched_message),
                std::tuple{s.room(), s.kind(), s.of({s.id(), s.time(), s.cursor(), kMinLong}),
                           s.count(), s.count(), s.messages()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_max_time), std::tuple{s.time(), s.kind(), s.room(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_max_message_id), std::tuple{s.kind(), s.room(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(query_message), std::tuple{s.message(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_by_id),
                std::tuple{s.id(), s.room(), s.kind_number(), s.flag(), s.flag(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_maxtime), std::tuple{s.time(), s.kind(), s.room(), s.code()});
       }},

      // Read state and send time
      {2, [](Step& s) { s.both(CALL(get_send_time), std::tuple{s.id()}); }},
      {3,
       [](Step& s) {
         s.both(CALL(update_message_status), std::tuple{s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_readtime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},

      // Conversation rows and settings
      {3,
       [](Step& s) {
         s.both(CALL(set_is_top), std::tuple{s.room(), s.kind(), s.flag(), s.flag()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_message_draft), std::tuple{s.room(), s.kind(), s.flag() ? ""s : s.body()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_message_draft), std::tuple{s.room(), s.kind(), s.body()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_silence), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_silence), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(remove_session), std::tuple{s.room(), s.kind()});
       }},
      {1, [](Step& s) { s.both(CALL(clear_session), std::tuple{s.kinds()}); }},
      {1,
       [](Step& s) {
         s.both(
             "common_session_operation",
             [](auto& target, const std::string& id, int32_t kind, const std::string& column) {
               return target.common_session_operation(id, kind, session_statement(target, column));
             },
             std::tuple{s.room(), s.kind_number(),
                        s.of({"is_top"s, "silence"s, "latest_id"s, "unread_count"s, "nonsense"s})});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(is_session_exist), std::tuple{s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(add_session),
                std::tuple{s.room(), s.kind(), s.time(), s.id(), s.body(), s.code(), s.code()});
       }},
      {5,
       [](Step& s) {
         s.both(CALL(set_session_time),
                std::tuple{s.room(), s.kind(), s.time(), s.object_name(), s.id(), s.code(),
                           s.code(), static_cast<uint32_t>(s.below(9))});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_sessiontime), std::tuple{s.time(), s.id(), s.room(), s.kind()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_sessiontime),
                std::tuple{s.room(), s.kind_number(), s.time(), s.id(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(delete_session), std::tuple{s.room(), s.kind_number()});
       }},

      // Conversation list
      {14,
       [](Step& s) {
         std::vector<SessionInfo> before;
         if (s.one_in(4)) before.push_back(s.session_info());
         s.both(CALL(get_session_list_by_page),
                std::tuple{s.listed_kinds(), s.cursor(), s.count(), before});
       }},
      {4, [](Step& s) { s.both(CALL(get_session), std::tuple{s.session_info()}); }},
      {4,
       [](Step& s) {
         s.both(CALL(load_session),
                std::tuple{s.sessions(), s.kind_list(), s.cursor(), s.count(), s.flag()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(load_session), std::tuple{s.session(), s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(load_message), std::tuple{s.sessions(), s.id_list()});
       }},
      {1, [](Step& s) { s.both(CALL(load_message), std::tuple{s.session()}); }},
      {3,
       [](Step& s) {
         s.both(CALL(load_distinct_session_with_unread), std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         // Conversations of one latest_id come in any order.
         const auto sorted = [](auto& target, std::vector<Session>& found, std::string& ids) {
           const bool result = target.load_session_with_latestid(found, ids);
           std::sort(found.begin(), found.end(), [](const Session& a, const Session& b) {
             return std::tie(a.session_id_, a.session_type_) <
                    std::tie(b.session_id_, b.session_type_);
           });
           return result;
         };
         s.both("load_session_with_latestid", sorted, std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},

      // Counters, read and receipt times
      {4,
       [](Step& s) {
         s.both(CALL(sync_unread), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(clear_unread), std::tuple{s.room(), s.kind()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipt_time), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2, [](Step& s) { s.both(CALL(get_total_unread_count), std::tuple{s.code()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(get_cate_unread_count), std::tuple{s.kinds(), s.code(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_mention_count), std::tuple{s.kinds(), s.code(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_unread_by_value),
                std::tuple{s.room(), s.kind_number(), s.count(), s.count()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unred_mention),
                std::tuple{s.room(), s.kind_number(), s.time(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(set_unread_readtime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
  };
  return all;
}

void run_any(Step& s) {
  if (!s.model().is_open() && s.flag()) return s.open(s.user());
  static const std::size_t total = [] {
    std::size_t sum = 0;
    for (const Operation& each : operations()) sum += each.weight;
    return sum;
  }();
  std::size_t at = s.below(total);
  for (const Operation& each : operations()) {
    if (at < each.weight) return each.run(s);
    at -= each.weight;
  }
}

// ---- Sequences ----------------------------------------------------------------------------------

using Sequence = std::vector<uint64_t>;  // one number an operation

struct Difference {
  std::size_t index;  // of the operation
  std::vector<std::string> calls;
  std::string expected;
  std::string actual;
};

std::string report(const Difference& difference) {
  std::string all;
  for (std::size_t i = 0; i < difference.calls.size(); ++i) {
    all += "  " + std::to_string(i) + ": " + difference.calls[i] + "\n";
  }
  return all + "  model: " + difference.expected + "\n  store: " + difference.actual + "\n";
}

uint64_t setting(const char* name, uint64_t fallback) {
  const char* value = std::getenv(name);
  return value == nullptr ? fallback : std::stoull(value);
}

Sequence sequence_of(uint64_t seed, std::size_t length) {
  std::mt19937_64 random(seed);
  Sequence sequence;
  while (sequence.size() < length) sequence.push_back(random());
  return sequence;
}

class ModelTest : public StoreTest {
 protected:
  // In memory where there is such a folder: the file is written thousands of times.
  static void SetUpTestSuite() {
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  }

  // The first difference. The stored rows are compared after every `interval` operations and at the
  // end.
  std::optional<Difference> run(const Sequence& sequence, std::size_t interval) {
    Model model;
    std::vector<std::string> calls;
    const auto differ = [&](const std::string& expected, const std::string& actual) {
      return Difference{calls.size() - 1, calls, expected, actual};
    };
    calls.emplace_back("the start");
    try {
      empty(model);
      calls.clear();
      for (std::size_t i = 0; i < sequence.size(); ++i) {
        calls.emplace_back("an operation that threw");
        Step step(store(), model, folder.path(), sequence[i]);
        run_any(step);
        calls.back() = step.call();
        if (step.actual() != step.expected()) return differ(step.expected(), step.actual());
        if (in_transaction() != model.in_transaction()) {
          return differ(model.in_transaction() ? "in a transaction" : "in no transaction",
                        "otherwise");
        }
        if (open_statements() != 0) return differ("", "left a statement open");
        if ((i + 1) % interval == 0 || i + 1 == sequence.size()) {
          const Rows expected = rows_of(model.committed());
          const Rows actual = rows(kAllRows);
          if (actual != expected) return differ(lines(expected), lines(actual));
        }
      }
    } catch (const std::runtime_error& error) {
      return differ("", error.what());
    }
    take_ledger();
    log.take();
    return std::nullopt;
  }

  // Leaves out operations, in ever smaller pieces, while there is a difference.
  Difference shrink(Sequence sequence, Difference difference) {
    sequence.resize(std::min(sequence.size(), difference.index + 1));
    for (std::size_t piece = sequence.size(); piece > 0; piece /= 2) {
      for (std::size_t at = 0; at < sequence.size();) {
        Sequence shorter = sequence;
        const auto from = shorter.begin() + static_cast<std::ptrdiff_t>(at);
        shorter.erase(from,
                      from + static_cast<std::ptrdiff_t>(std::min(piece, sequence.size() - at)));
        const auto found = run(shorter, 1);
        if (found) {
          shorter.resize(std::min(shorter.size(), found->index + 1));
          sequence = shorter;
          difference = *found;
        } else {
          at += piece;
        }
      }
    }
    return difference;
  }

 private:
  // Both with no rows, open for "me"; a new connection has inserted nothing yet.
  void empty(Model& model) {
    set_clock(1000000);
    store().close_db();
    plant(
        "begin;delete from t_message;delete from t_session;delete from t_sync;"
        "delete from sqlite_sequence;commit");
    if (!open()) throw std::runtime_error("the store does not open");
    model.open("me");
    std::vector<SessionInfo> none;
    store().get_session_list_by_page({}, 0, 0, none);  // forgets how the last page ended
  }
};

TEST_F(ModelTest, AgreesWithTheStoreOnRandomSequences) {
  const uint64_t first = setting("CORVAN_MODEL_SEED", 1);
  const uint64_t count = setting("CORVAN_MODEL_SEQUENCES", 300);
  const std::size_t length = setting("CORVAN_MODEL_LENGTH", 50);
  for (uint64_t seed = first; seed < first + count; ++seed) {
    const Sequence sequence = sequence_of(seed, length);
    const auto difference = run(sequence, 4);
    if (!difference) continue;
    ADD_FAILURE() << "CORVAN_MODEL_SEED=" << seed
                  << " CORVAN_MODEL_SEQUENCES=1 CORVAN_MODEL_LENGTH=" << length << ", operation "
                  << difference->index << ":\n"
                  << difference->calls.back() << "\n  model: " << difference->expected
                  << "\n  store: " << difference->actual << "\nshrunk:\n"
                  << report(shrink(sequence, *difference));
    break;
  }
  store().close_db();
}

}  // namespace
}  // namespace corvan_test
