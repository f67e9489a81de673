// Steps other than operations: inserted rows, opening, closing, the clock.

#include "tests/model/step.h"

#include <tuple>

#include "tests/model/sql_values.h"
#include "tests/support/clock.h"

namespace corvan_test {

using namespace std::string_literals;

namespace {

// The values as literals, for an insert.
template <typename... Values>
std::string sql_list(const std::tuple<Values...>& values) {
  std::string all;
  const auto add = [&all](const std::string& each) { all += (all.empty() ? "" : ",") + each; };
  std::apply([&add](const auto&... each) { (add(sql_text(each)), ...); }, values);
  return all;
}

}  // namespace

// Plants one message, or more mentions than a page of mentions can have.
void Step::plant_messages() {
  const bool mentions = one_in(4);
  std::vector<MessageRow> rows(mentions ? 20 : 1);
  for (MessageRow& row : rows) {
    row.id = mentions ? 100 + static_cast<int64_t>(below(1000)) : planted_id();
    row.session_id = cut(mentions ? room_ : room());
    row.session_type = mentions ? kind_ : kind();
    row.object_name = of({"CV:TxtMsg"s, "CV:QbNtf"s, "o'k"s, cut(object_name())});
    row.content = of({"copied"s, "caf\xc3\xa9"s, cut(body())});
    row.sender = one_in(3) ? cut(sender()) : of({"me"s, "bob"s});
    row.direction = mentions ? 2 : wide({0, 1, 2});
    row.sent_status = wide({0, 0, 1, 2, 3});
    row.read_status = wide({0, 0, 0, 1, 2});
    row.is_mention = mentions ? of({1, 1, 1, 1, 1, 0, 2}) : wide({0, 1, 1, 2});
    row.sent_time = time();
    row.client_uid = client_uid();
    row.server_uid = of({""s, "1"s, "2"s, "3"s, "o'k"s, "'"s, cut(server_uid())});
  }
  plant("plant_messages", rows, {});
}

int64_t Step::planted_id() {
  if (one_in(20)) return kMaxLong;
  if (one_in(3)) return of({int64_t{kMaxInt}, int64_t{kMaxInt} + 1, kWide + 1, kWide + 2});
  return of(
      {int64_t{-1}, int64_t{-1}, int64_t{0}, int64_t{0}, static_cast<int64_t>(below(10)), id()});
}

void Step::plant_session() {
  SessionRow row;
  row.session_id = flag() ? cut(room()) : of({"a"s, "b"s, "c"s});
  row.session_type = kind();
  row.title = cut(body());
  row.draft = of({""s, ""s, "draft"s, cut(body())});
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
  plant("plant_session", {}, {row});
}

// Plants conversations with few different times, each with its newest message.
void Step::plant_page() {
  std::vector<MessageRow> messages(30);
  std::vector<SessionRow> sessions(messages.size());
  for (std::size_t i = 0; i < messages.size(); ++i) {
    SessionRow& session = sessions[i];
    session.session_id = "page" + std::to_string(i);
    session.session_type = kind_;
    session.is_top = of({0, 0, 0, 0, 1});
    session.session_time = of({100, 100, 100, 200});
    session.latest_id = 2000 + static_cast<int64_t>(i);
    MessageRow& message = messages[i];
    message.id = session.latest_id;
    message.session_id = session.session_id;
    message.session_type = kind_;
    message.content = "newest";
    message.sent_time = of({50, 100, 100, 150});
  }
  plant("plant_page", messages, sessions);
}

void Step::plant(const char* name, const std::vector<MessageRow>& messages,
                 const std::vector<SessionRow>& sessions) {
  std::string list;
  std::string sql;
  for (const MessageRow& row : messages) {
    const auto columns =
        std::tie(row.id, row.session_id, row.session_type, row.object_name, row.content, row.sender,
                 row.direction, row.sent_status, row.read_status, row.is_mention, row.sent_time,
                 row.client_uid, row.server_uid);
    list += "(" + text(columns) + ")";
    sql +=
        "insert or replace into t_message(id,session_id,session_type,object_name,content,sender,"
        "direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) values(" +
        sql_list(columns) + ");";
  }
  for (const SessionRow& row : sessions) {
    const auto columns = std::tie(row.session_id, row.session_type, row.title, row.draft,
                                  row.is_top, row.session_time, row.unread_count, row.mention_count,
                                  row.silence, row.latest_id, row.read_time, row.receipt_time);
    list += "(" + text(columns) + ")";
    sql +=
        "insert or replace into t_session(session_id,session_type,title,draft,is_top,session_time,"
        "unread_count,mention_count,silence,latest_id,read_time,receipt_time) values(" +
        sql_list(columns) + ");";
  }
  tell(name + ("(" + list + ")"));
  if (model_.in_transaction()) return;
  second_.run("begin;" + sql + "commit");
  for (const MessageRow& row : messages) model_.plant(row);
  for (const SessionRow& row : sessions) model_.plant(row);
}

// Another user's store is opened only after a close.
void Step::open(const std::string& user) {
  if (user != model_.user()) close();
  tell("open(" + text(user) + ")");
  const bool actual = store_.init_open_db(cvrtc::Pathname(folder_), "", user);
  const bool expected = model_.open(user);
  agrees_ = actual == expected;
  actual_ = [actual] { return text(actual); };
  expected_ = [expected] { return text(expected); };
}

void Step::close() {
  tell("close()");
  second_.close();
  store_.close_db();
  model_.close();
}

void Step::set_time() {
  const int64_t now =
      of({int64_t{1000000}, int64_t{1000001}, int64_t{250}, int64_t{4}, int64_t{0}});
  tell("set_clock(" + text(now) + ")");
  set_clock(now);
}

}  // namespace corvan_test
