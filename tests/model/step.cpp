#include "tests/model/step.h"

#include <iterator>
#include "tests/model/sql_values.h"

namespace corvan_test {

using namespace std::string_literals;

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;
using Corvan::UpdateValue;

namespace {

// Longer than a page of the file; two such texts differ only at their ends.
std::string long_text(const std::string& end) {
  return std::string(5000, 'x') + end;
}

}  // namespace

Step::Step(CvDbSingleton& store, Model& model, SecondConnection& second, const std::string& folder,
           uint64_t number)
    : store_(store),
      model_(model),
      second_(second),
      folder_(folder),
      number_(number),
      random_(number) {
  choose_conversation();
}

// Often a stored value.
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

const SessionRow* Step::own_session() const {
  for (const SessionRow& row : model_.tables().sessions) {
    if (row.session_id == cut(room_) && row.session_type == kind_) return &row;
  }
  return nullptr;
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

std::string Step::any_room() {
  if (!one_in(6)) return of({"room"s, "room"s, "peer"s});
  return of({""s, "o'k"s, "caf\xc3\xa9"s, "room\0x"s, "\0x"s, "nobody"s, long_text("room")});
}

SessionType Step::any_kind() {
  const int32_t odd = static_cast<int32_t>(below(10));
  return SessionType(one_in(6) ? odd : of({1, 1, 1, 2, 2, 3, 4, 5}));
}

std::string Step::server_uid() {
  if (!one_in(5)) return of({""s, "1"s, "2"s, "3"s});
  return of({"o'k"s, "o''k"s, "'"s, "1\0x"s, "\0x"s, "none"s, "caf\xc3\xa9"s, long_text("uid")});
}

std::string Step::sender() {
  if (like_) return like_->sender;
  if (!one_in(6)) return of({"me"s, "me"s, "bob"s, "you"s, ""s, "me\0x"s});
  return of({"o'k"s, "caf\xc3\xa9"s, "\0x"s, long_text("sender")});
}

std::string Step::object_name() {
  if (!one_in(6)) return of({"CV:TxtMsg"s, "CV:QbNtf"s, ""s});
  return of({"o'k"s, "o''k"s, "CV:QbNtf\0x"s, "CV:TxtMsg\0x"s, "'"s, "caf\xc3\xa9"s,
             long_text("CV:TxtMsg")});
}

std::string Step::body() {
  if (!one_in(4)) return of({"hello"s, ""s, "it's"s});
  return of({"na\xc3\xafve \xe6\xbc\xa2"s, "a\0b"s, "\0b"s, std::string(300, 'x'),
             long_text("body"), long_text("b\0dy"s)});
}

std::string Step::user() {
  if (!one_in(6)) return of({"me"s, "me"s, "you"s, ""s, "me\0x"s});
  return of({"o'k"s, "caf\xc3\xa9"s, "\0x"s, long_text("me")});
}

int64_t Step::id() {
  if (like_ && flag()) return like_->id;
  const MessageRow* row = one_in(3) ? nullptr : stored_message();
  if (row != nullptr) {
    // Sometimes as the 32-bit reader returns it.
    return one_in(8) ? static_cast<int32_t>(static_cast<uint32_t>(row->id)) : row->id;
  }
  return of({int64_t{0}, int64_t{0}, int64_t{-1}, int64_t{-1}, int64_t{1}, int64_t{2}, int64_t{3},
             int64_t{5}, int64_t{99}, int64_t{kMaxInt} + 1, kWide + 1, kWide + 2, kMaxLong,
             kMinLong});
}

int64_t Step::time() {
  if (like_ && flag()) {
    return one_in(3) && like_->sent_time > kMinLong ? like_->sent_time - 1 : like_->sent_time;
  }
  const MessageRow* message = one_in(4) ? stored_message() : nullptr;
  if (message != nullptr) return message->sent_time;
  const SessionRow* session = one_in(3) ? own_session() : one_in(4) ? stored_session() : nullptr;
  if (session != nullptr) {
    return of({session->session_time, session->read_time, session->receipt_time});
  }
  if (one_in(8)) return of({kMaxLong, kMaxLong - 1, kMinLong, int64_t{-1}});
  return of({0, 1, 2, 3, 5, 100, 100, 200, 300, 1000000});
}

int64_t Step::receipt_time() {
  const SessionRow* session = flag() ? own_session() : nullptr;
  if (session == nullptr) return time();
  const int64_t stored = session->receipt_time;
  return flag() && stored < kMaxLong ? stored + 1 : stored;
}

std::string Step::id_list() {
  std::string list;
  for (const int64_t each : ids()) list += (list.empty() ? "" : ",") + std::to_string(each);
  if (one_in(12)) list += of({","s, "x"s, "'"s, "\0"s});
  return list;
}

std::vector<SessionType> Step::listed_kinds() {
  std::vector<SessionType> listed = kinds();
  listed.push_back(SessionType(of({1, 2, 3, 4, 5})));
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

}  // namespace corvan_test
