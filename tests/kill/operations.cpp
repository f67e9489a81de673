// The operations of a plan, in the order of the store's header.

#include <algorithm>
#include <memory>
#include <utility>

#include "tests/kill/planner.h"
#include "tests/support/encryption.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionType;
using Corvan::UpdateValue;

namespace {

std::string in_quotes(const std::string& text) {
  return "\"" + text + "\"";
}

std::string place(const std::string& room, SessionType kind) {
  return in_quotes(room) + ", " + std::to_string(kind);
}

}  // namespace

// ---- Lifecycle and transactions -----------------------------------------------------------------

void Planner::add_damaged_opening() {
  PlannedCall opening;
  opening.text = "init_open_db, which meets a damaged file";
  opening.phase = Phase::kDeleting;
  opening.on_store = [folder = folder_](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", "me")};
  };
  opening.on_model = [](Model&) { return int64_t{stores_are_encrypted() ? 0 : 1}; };
  add(std::move(opening));
}

void Planner::add_opening(Phase phase) {
  const std::string name = user();
  PlannedCall opening;
  opening.text = "init_open_db(" + in_quotes(name) + ")";
  opening.phase = phase;
  opening.gives_store = true;
  opening.on_store = [folder = folder_, name](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", name)};
  };
  opening.on_model = [name](Model& model) { return int64_t{model.open(name)}; };
  add(std::move(opening));
}

// Opens the store again while it is open.
void Planner::add_marking() {
  const std::string name = model_.user();
  PlannedCall marking;
  marking.text = "init_open_db(" + in_quotes(name) + ") again";
  marking.on_store = [folder = folder_, name](CvDbSingleton& store) {
    return int64_t{store.init_open_db(cvrtc::Pathname(folder), "", name)};
  };
  marking.on_model = [name](Model& model) { return int64_t{model.open(name)}; };
  add(std::move(marking));
}

void Planner::add_close() {
  PlannedCall closing;
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
  add(planned("start_transaction", Phase::kInTransaction,
              [](auto& target) { return target.start_transaction(); }));
}

void Planner::add_commit() {
  add(planned("commit_transaction", Phase::kCommitting,
              [](auto& target) { return target.commit_transaction(); }));
}

void Planner::add_sync_time() {
  const int64_t at = time();
  const bool receive = one_in(2);
  add_one_commit("set_sync_time", std::to_string(at),
                 [at, receive](auto& target) { return target.set_sync_time(at, receive); });
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

// Saves a batch in one transaction, as clients save fetched history.
void Planner::add_large_batch() {
  if (!model_.in_transaction()) add_start();
  std::vector<MessageResponse> messages;
  for (std::size_t left = 50 + below(300); left > 0; --left) messages.push_back(message());
  add(planned("save_message of " + std::to_string(messages.size()), Phase::kInTransaction,
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
  add_one_commit("set_send_time", std::to_string(msg_id) + ", " + place(in, of),
                 [=](auto& target) -> int64_t {
                   target.set_send_time(msg_id, at, uid, in, of, reason);
                   return 1;
                 });
}

void Planner::add_sent_status() {
  const int64_t msg_id = id();
  const auto status = static_cast<int32_t>(below(4));
  add_one_commit(
      "update_sent_status", std::to_string(msg_id) + ", " + std::to_string(status),
      [msg_id, status](auto& target) { return target.update_sent_status(msg_id, status); });
}

void Planner::add_read_status() {
  const int64_t msg_id = id();
  const auto status = static_cast<int32_t>(below(3));
  add_one_commit("set_read_status", std::to_string(msg_id) + ", " + std::to_string(status),
                 [msg_id, status](auto& target) { return target.set_read_status(msg_id, status); });
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
  add_one_commit("set_message_content", std::to_string(msg_id), [=](auto& target) {
    return target.set_message_content(msg_id, text, object_name);
  });
}

void Planner::add_large_content() {
  const int64_t msg_id = id();
  const std::string text(2000000 + below(1000000), static_cast<char>('a' + below(26)));
  add(planned(
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
  add_one_commit("delete_message", list,
                 [ids](auto& target) { return target.delete_message(ids); });
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

// Clears the oldest tenth of the messages.
void Planner::add_clear_by_time() {
  std::vector<int64_t> times;
  for (const auto& [id, row] : model_.tables().messages) times.push_back(row.sent_time);
  std::sort(times.begin(), times.end());
  const int64_t at = times.empty() ? 0 : times[times.size() / 10];
  const bool clean = one_in(2);
  add(planned("clear_message_by_timestamp(" + std::to_string(at) + (clean ? ", clean)" : ")"),
              clean ? Phase::kVacuuming : Phase::kWriting,
              [at, clean](auto& target) { return target.clear_message_by_timestamp(at, clean); }));
}

// ---- Conversations ------------------------------------------------------------------------------

void Planner::add_pin() {
  const std::string in = room();
  const SessionType of = kind();
  const bool top = one_in(2);
  add_one_commit("set_is_top", place(in, of),
                 [in, of, top](auto& target) { return target.set_is_top(in, of, top, true); });
}

void Planner::add_draft() {
  const std::string in = room();
  const SessionType of = kind();
  const std::string draft = one_in(3) ? "" : body();
  add_one_commit("set_message_draft", place(in, of),
                 [in, of, draft](auto& target) { return target.set_message_draft(in, of, draft); });
}

void Planner::add_silence() {
  const std::string in = room();
  const SessionType of = kind();
  const auto status = static_cast<int32_t>(below(3));
  add_one_commit("set_silence", place(in, of),
                 [in, of, status](auto& target) { return target.set_silence(in, of, status); });
}

void Planner::add_remove_session() {
  const std::string in = room();
  const SessionType of = kind();
  PlannedCall removal = planned("remove_session(" + place(in, of) + ")", Phase::kWriting,
                                [in, of](auto& target) { return target.remove_session(in, of); });
  removal.between = [in, of](const Model& before) {
    return after(before, [&in, of](Model& model) { model.delete_session(in, of); });
  };
  add(std::move(removal));
}

void Planner::add_clear_session() {
  const SessionType of = kind();
  add_one_commit("clear_session", std::to_string(of),
                 [of](auto& target) { return target.clear_session({of}); });
}

void Planner::add_clear_unread() {
  const std::string in = room();
  const SessionType of = kind();
  add_one_commit("clear_unread", place(in, of),
                 [in, of](auto& target) { return target.clear_unread(in, of); });
}

}  // namespace corvan_test
