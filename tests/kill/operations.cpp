#include "tests/kill/operations.h"

#include <algorithm>
#include <array>
#include <memory>
#include <tuple>
#include <utility>

#include "tests/support/clock.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionType;
using Corvan::UpdateValue;

namespace {

auto columns(const SessionRow& s) {
  return std::tie(s.session_id, s.session_type, s.title, s.draft, s.is_top, s.session_time,
                  s.unread_count, s.mention_count, s.silence, s.latest_id, s.read_time,
                  s.receipt_time);
}

const SessionRow* find(const std::vector<SessionRow>& rows, const SessionRow& like) {
  const auto found = std::find_if(rows.begin(), rows.end(), [&like](const SessionRow& row) {
    return row.session_id == like.session_id && row.session_type == like.session_type;
  });
  return found == rows.end() ? nullptr : &*found;
}

// The messages of `model`, the conversations of `other`.
Model with_sessions_of(Model model, const Model& other) {
  const std::vector<SessionRow> rows = model.tables().sessions;
  for (const SessionRow& row : rows) {
    if (find(other.tables().sessions, row) == nullptr) {
      model.delete_session(row.session_id, static_cast<int32_t>(row.session_type));
    }
  }
  for (const SessionRow& row : other.tables().sessions) {
    const SessionRow* mine = find(rows, row);
    if (mine == nullptr || columns(*mine) != columns(row)) model.plant(row);
  }
  return model;
}

template <typename Call>
std::vector<Model> after(const Model& before, const Call& call) {
  std::vector<Model> states{before};
  call(states.back());
  return states;
}

std::string in_quotes(const std::string& text) {
  return "\"" + text + "\"";
}

std::string place(const std::string& room, SessionType kind) {
  return in_quotes(room) + ", " + std::to_string(kind);
}

}  // namespace

const char* name(Phase phase) {
  static constexpr std::array<const char*, kPhases> names = {"creating",
                                                             "opening",
                                                             "recovering",
                                                             "saving",
                                                             "saving a batch",
                                                             "writing",
                                                             "compound",
                                                             "in a transaction",
                                                             "committing",
                                                             "compacting",
                                                             "large body",
                                                             "checkpointing at close",
                                                             "deleting a damaged file"};
  return names.at(static_cast<std::size_t>(phase));
}

int64_t run(const Operation& operation, CvDbSingleton& store) {
  set_clock(operation.clock);
  return operation.on_store(store);
}

int64_t run(const Operation& operation, Model& model) {
  set_clock(operation.clock);
  return operation.on_model(model);
}

// ---- Plans --------------------------------------------------------------------------------------

Planner::Planner(const Model& model, std::string folder, Life life, uint64_t seed)
    : model_(model), folder_(std::move(folder)), life_(life), random_(seed), clock_(clock_now()) {}

Plan Planner::plan(std::size_t length, bool damaged, Phase opening) {
  if (damaged) add_damaged_opening();
  add_opening(opening);
  if (life_ == Life::kHeavy) add_save();
  while (plan_.size() < length) add_any();
  return std::move(plan_);
}

void Planner::add_any() {
  static const std::vector<Choice> usual = {
      {30, &Planner::add_save},         {5, &Planner::add_batch_save},
      {9, &Planner::add_start},         {4, &Planner::add_sync_time},
      {3, &Planner::add_completions},   {5, &Planner::add_set_send_time},
      {4, &Planner::add_sent_status},   {6, &Planner::add_read_status},
      {4, &Planner::add_receipt},       {4, &Planner::add_content},
      {5, &Planner::add_delete_by_ids}, {3, &Planner::add_delete_by_uids},
      {3, &Planner::add_clear_message}, {1, &Planner::add_clear_by_time},
      {3, &Planner::add_pin},           {3, &Planner::add_draft},
      {2, &Planner::add_silence},       {2, &Planner::add_remove_session},
      {1, &Planner::add_clear_session}, {4, &Planner::add_clear_unread},
      {4, &Planner::add_close},         {1, &Planner::add_marking},
      {1, &Planner::add_commit}};
  static const std::vector<Choice> heavy = {{6, &Planner::add_large_content},
                                            {2, &Planner::add_save},
                                            {1, &Planner::add_delete_by_ids},
                                            {1, &Planner::add_start}};
  if (!model_.is_open()) return add_opening(Phase::kOpening);
  if (model_.in_transaction() && one_in(5)) return add_commit();
  if (life_ == Life::kHeavy) return add_any_of(heavy);
  if (life_ == Life::kGrowing && one_in(25)) return add_large_batch();
  add_any_of(usual);
}

void Planner::add_any_of(const std::vector<Choice>& choices) {
  std::size_t total = 0;
  for (const Choice& choice : choices) total += choice.weight;
  std::size_t at = below(total);
  for (const Choice& choice : choices) {
    if (at < choice.weight) return (this->*choice.add)();
    at -= choice.weight;
  }
}

void Planner::add(Operation operation) {
  operation.clock = clock_ += 10;
  const bool joins = model_.in_transaction();
  run(operation, model_);
  // It stayed in the transaction that was there before: nothing of it is committed.
  if (joins && model_.in_transaction()) operation.phase = Phase::kInTransaction;
  plan_.push_back(std::move(operation));
}

template <typename Call>
Operation Planner::operation(const std::string& text, Phase phase, Call call) {
  Operation operation;
  operation.text = text;
  operation.phase = phase;
  operation.on_store = [call](CvDbSingleton& store) { return int64_t{call(store)}; };
  operation.on_model = [call](Model& model) { return int64_t{call(model)}; };
  return operation;
}

template <typename Call>
void Planner::add_messages_first(const std::string& text, Phase phase, Call call) {
  Operation all = operation(text, phase, call);
  all.between = [call](const Model& before) {
    return std::vector<Model>{with_sessions_of(after(before, call).back(), before)};
  };
  add(std::move(all));
}

template <typename Call>
void Planner::add_batch(const std::string& text, std::size_t count, Call call) {
  Operation all = operation(text + " of " + std::to_string(count), Phase::kBatch,
                            [call, count](auto& target) { return call(target, count); });
  all.between = [call, count](const Model& before) {
    std::vector<Model> states;
    for (std::size_t some = 1; some < count; ++some) {
      states.push_back(before);
      call(states.back(), some);
    }
    return states;
  };
  add(std::move(all));
}

// ---- Arguments ----------------------------------------------------------------------------------

SessionType Planner::kind() {
  return SessionType(static_cast<int32_t>(1 + below(3)));
}

std::string Planner::body() {
  if (one_in(12)) return std::string(1000 + below(6000), 'x');  // on pages of its own
  return std::string(below(200), static_cast<char>('a' + below(26)));
}

std::string Planner::server_uid() {
  return one_in(3) ? "" : "s" + std::to_string(below(4000));
}

std::string Planner::stored_server_uid() {
  const auto& rows = model_.tables().messages;
  const auto row = rows.find(id());
  return row == rows.end() ? server_uid() : row->second.server_uid;
}

// Of a stored message where there is one.
int64_t Planner::id() {
  const Tables& tables = model_.tables();
  const auto row = tables.messages.lower_bound(
      1 + static_cast<int64_t>(below(static_cast<std::size_t>(tables.largest_id) + 1)));
  return row == tables.messages.end() ? tables.largest_id : row->first;
}

// Around now, so that messages come in order and out of it.
int64_t Planner::time() {
  return clock_ - 100 + static_cast<int64_t>(below(200));
}

MessageResponse Planner::message() {
  MessageResponse message;
  message.msg_id_ = -1;
  message.is_store_ = true;
  message.session_id_ = room();
  message.session_type_ = kind();
  message.object_name_ = "CV:TxtMsg";
  message.sender_ = user();
  message.content_ = body();
  message.is_receive_ = one_in(2);
  message.sent_status_ = static_cast<int32_t>(below(3));
  message.sent_time_ = time();
  message.client_uid_ = one_in(2) ? 0 : static_cast<int64_t>(below(300));
  message.server_uid_ = server_uid();
  return message;
}

// ---- Lifecycle and transactions -----------------------------------------------------------------

void Planner::add_damaged_opening() {
  Operation opening;
  opening.text = "init_open_db, which meets a damaged file";
  opening.phase = Phase::kDeleting;
  opening.on_store = [folder = folder_](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", "me")};
  };
  opening.on_model = [](Model&) { return int64_t{1}; };
  add(std::move(opening));
}

void Planner::add_opening(Phase phase) {
  const std::string name = user();
  Operation opening;
  opening.text = "init_open_db(" + in_quotes(name) + ")";
  opening.phase = phase;
  opening.gives_store = true;
  opening.on_store = [folder = folder_, name](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", name)};
  };
  opening.on_model = [name](Model& model) { return int64_t{model.open(name)}; };
  add(std::move(opening));
}

// Opening what is open.
void Planner::add_marking() {
  const std::string name = model_.user();
  Operation marking;
  marking.text = "init_open_db(" + in_quotes(name) + ") again";
  marking.on_store = [folder = folder_, name](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", name)};
  };
  marking.on_model = [name](Model& model) { return int64_t{model.open(name)}; };
  add(std::move(marking));
}

void Planner::add_close() {
  Operation closing;
  closing.text = "close_db";
  closing.phase = Phase::kClosing;
  closing.on_store = [](CvDbSingleton& store) {
    store.close_db();
    return int64_t{1};
  };
  closing.on_model = [](Model& model) {
    model.close();
    return int64_t{1};
  };
  add(std::move(closing));
}

void Planner::add_start() {
  add(operation("start_transaction", Phase::kInTransaction,
                [](auto& target) { return target.start_transaction(); }));
}

void Planner::add_commit() {
  add(operation("commit_transaction", Phase::kCommitting,
                [](auto& target) { return target.commit_transaction(); }));
}

void Planner::add_sync_time() {
  const int64_t at = time();
  const bool receive = one_in(2);
  add(operation("set_sync_time(" + std::to_string(at) + ")", Phase::kWriting,
                [at, receive](auto& target) { return target.set_sync_time(at, receive); }));
}

// ---- Messages -----------------------------------------------------------------------------------

void Planner::add_save() {
  MessageResponse m = message();
  if (one_in(10)) m.sent_time_ = 0;
  const bool mention = one_in(5);
  const bool history = one_in(6);
  const bool insert_only = one_in(8);
  const bool counts = !one_in(3);
  add_messages_first("save_message(" + place(m.session_id_, m.session_type_) + ", " +
                         in_quotes(m.server_uid_) + ")",
                     Phase::kSaving, [m, mention, history, insert_only, counts](auto& target) {
                       return target.save_message(
                           m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_,
                           m.is_receive_, m.sent_status_, m.read_status_, mention, m.sent_time_,
                           m.client_uid_, m.server_uid_, history, insert_only, counts);
                     });
}

void Planner::add_batch_save() {
  std::vector<MessageResponse> messages;
  for (std::size_t left = 2 + below(6); left > 0; --left) messages.push_back(message());
  add_batch("save_message", messages.size(), [messages](auto& target, std::size_t count) {
    std::vector<std::unique_ptr<MessageResponse>> batch;
    for (std::size_t i = 0; i < count; ++i) {
      batch.push_back(std::make_unique<MessageResponse>(messages[i]));
    }
    return target.save_message(batch) ? batch.back()->msg_id_ : -1;
  });
}

// As a client fetches history: in one transaction.
void Planner::add_large_batch() {
  if (!model_.in_transaction()) add_start();
  std::vector<MessageResponse> messages;
  for (std::size_t left = 50 + below(300); left > 0; --left) messages.push_back(message());
  add(operation("save_message of " + std::to_string(messages.size()), Phase::kInTransaction,
                [messages](auto& target) {
                  std::vector<std::unique_ptr<MessageResponse>> batch;
                  for (const MessageResponse& each : messages) {
                    batch.push_back(std::make_unique<MessageResponse>(each));
                  }
                  return target.save_message(batch) ? batch.back()->msg_id_ : -1;
                }));
  add_commit();
}

void Planner::add_completions() {
  std::vector<UpdateValue> values(2 + below(4));
  for (UpdateValue& value : values) {
    value.msg_id_ = id();
    value.server_uid_new_ = server_uid();
    value.sent_time_ = time();
  }
  add_batch("set_send_time_for_dup_msg", values.size(),
            [values](auto& target, std::size_t count) -> int64_t {
              const auto end = values.begin() + static_cast<std::ptrdiff_t>(count);
              target.set_send_time_for_dup_msg(std::vector<UpdateValue>(values.begin(), end));
              return 1;
            });
}

void Planner::add_set_send_time() {
  const int64_t msg_id = id();
  const int64_t at = time();
  const std::string uid = server_uid();
  const std::string in = room();
  const SessionType of = kind();
  const int32_t reason = one_in(4) ? 7 : 0;
  add(operation("set_send_time(" + std::to_string(msg_id) + ", " + place(in, of) + ")",
                Phase::kCompound, [=](auto& target) -> int64_t {
                  target.set_send_time(msg_id, at, uid, in, of, reason);
                  return 1;
                }));
}

void Planner::add_sent_status() {
  const int64_t msg_id = id();
  const auto status = static_cast<int32_t>(below(4));
  add(operation(
      "update_sent_status(" + std::to_string(msg_id) + ", " + std::to_string(status) + ")",
      Phase::kWriting,
      [msg_id, status](auto& target) { return target.update_sent_status(msg_id, status); }));
}

void Planner::add_read_status() {
  const int64_t msg_id = id();
  const auto status = static_cast<int32_t>(below(3));
  add(operation("set_read_status(" + std::to_string(msg_id) + ", " + std::to_string(status) + ")",
                Phase::kCompound,
                [msg_id, status](auto& target) { return target.set_read_status(msg_id, status); }));
}

void Planner::add_receipt() {
  const std::string in = room();
  const SessionType of = kind();
  const int64_t at = time();
  add_messages_first(
      "update_message_receipt_status(" + place(in, of) + ")", Phase::kWriting,
      [in, of, at](auto& target) { return target.update_message_receipt_status(in, of, at); });
}

void Planner::add_content() {
  const int64_t msg_id = id();
  const std::string text = body();
  const std::string object_name = one_in(2) ? "" : "CV:Recall";
  add(operation(
      "set_message_content(" + std::to_string(msg_id) + ")", Phase::kWriting,
      [=](auto& target) { return target.set_message_content(msg_id, text, object_name); }));
}

void Planner::add_large_content() {
  const int64_t msg_id = id();
  const std::string text(2000000 + below(1000000), static_cast<char>('a' + below(26)));
  add(operation(
      "set_message_content(" + std::to_string(msg_id) + ") to " + std::to_string(text.size()),
      Phase::kRewriting,
      [msg_id, text](auto& target) { return target.set_message_content(msg_id, text, ""); }));
}

void Planner::add_delete_by_ids() {
  std::vector<int64_t> ids;
  std::string list;
  for (std::size_t left = 1 + below(5); left > 0; --left) {
    ids.push_back(id());
    list += (list.empty() ? "" : ", ") + std::to_string(ids.back());
  }
  add(operation("delete_message(" + list + ")", Phase::kCompound,
                [ids](auto& target) { return target.delete_message(ids); }));
}

void Planner::add_delete_by_uids() {
  const std::string in = room();
  const SessionType of = kind();
  const std::vector<std::string> uids{"s" + std::to_string(below(4000)), "none",
                                      "s" + std::to_string(below(4000)), stored_server_uid()};
  add_messages_first("delete_message(" + place(in, of) + ", server uids)", Phase::kWriting,
                     [in, of, uids](auto& target) -> int64_t {
                       target.delete_message(in, of, uids);
                       return 1;
                     });
}

void Planner::add_clear_message() {
  const std::string in = room();
  const SessionType of = kind();
  const bool clean = !one_in(3);
  add_messages_first("clear_message(" + place(in, of) + (clean ? ", clean)" : ")"),
                     clean ? Phase::kVacuuming : Phase::kWriting,
                     [in, of, clean](auto& target) { return target.clear_message(in, of, clean); });
}

// The older tenth.
void Planner::add_clear_by_time() {
  std::vector<int64_t> times;
  for (const auto& [id, row] : model_.tables().messages) times.push_back(row.sent_time);
  std::sort(times.begin(), times.end());
  const int64_t at = times.empty() ? 0 : times[times.size() / 10];
  const bool clean = one_in(2);
  add(operation("clear_message_by_timestamp(" + std::to_string(at) + (clean ? ", clean)" : ")"),
                clean ? Phase::kVacuuming : Phase::kWriting, [at, clean](auto& target) {
                  return target.clear_message_by_timestamp(at, clean);
                }));
}

// ---- Conversations ------------------------------------------------------------------------------

void Planner::add_pin() {
  const std::string in = room();
  const SessionType of = kind();
  const bool top = one_in(2);
  add(operation("set_is_top(" + place(in, of) + ")", Phase::kWriting,
                [in, of, top](auto& target) { return target.set_is_top(in, of, top, true); }));
}

void Planner::add_draft() {
  const std::string in = room();
  const SessionType of = kind();
  const std::string draft = one_in(3) ? "" : body();
  add(operation("set_message_draft(" + place(in, of) + ")", Phase::kWriting,
                [in, of, draft](auto& target) { return target.set_message_draft(in, of, draft); }));
}

void Planner::add_silence() {
  const std::string in = room();
  const SessionType of = kind();
  const auto status = static_cast<int32_t>(below(3));
  add(operation("set_silence(" + place(in, of) + ")", Phase::kWriting,
                [in, of, status](auto& target) { return target.set_silence(in, of, status); }));
}

void Planner::add_remove_session() {
  const std::string in = room();
  const SessionType of = kind();
  Operation removal = operation("remove_session(" + place(in, of) + ")", Phase::kWriting,
                                [in, of](auto& target) { return target.remove_session(in, of); });
  removal.between = [in, of](const Model& before) {
    return after(before, [&in, of](Model& model) { model.delete_session(in, of); });
  };
  add(std::move(removal));
}

void Planner::add_clear_session() {
  const SessionType of = kind();
  add(operation("clear_session(" + std::to_string(of) + ")", Phase::kCompound,
                [of](auto& target) { return target.clear_session({of}); }));
}

void Planner::add_clear_unread() {
  const std::string in = room();
  const SessionType of = kind();
  add(operation("clear_unread(" + place(in, of) + ")", Phase::kCompound,
                [in, of](auto& target) { return target.clear_unread(in, of); }));
}

}  // namespace corvan_test
