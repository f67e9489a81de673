#include "tests/kill/planner.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>
#include <tuple>

#include "tests/support/clock.h"
#include "tests/support/encryption.h"
#include "tests/support/operations/operation.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionType;

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

}  // namespace

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

int64_t run(const PlannedCall& call, CvDbSingleton& store) {
  set_clock(call.clock);
  return call.on_store(store);
}

int64_t run(const PlannedCall& call, Model& model) {
  set_clock(call.clock);
  return call.on_model(model);
}

Phase phase_of(const std::string& name) {
  static const std::map<std::string, Commits> commits = [] {
    std::map<std::string, Commits> all;
    for (const Operation& each : all_operations()) all.emplace(each.name, each.commits);
    return all;
  }();
  switch (commits.at(name)) {
    case Commits::kOnce:
      return Phase::kWriting;
    case Commits::kOneTransaction:
      return Phase::kCompound;
    default:
      throw std::logic_error(name + " does not commit once");
  }
}

// ---- Plans --------------------------------------------------------------------------------------

Planner::Planner(const Model& model, std::string folder, Life life, uint64_t seed)
    : model_(model), folder_(std::move(folder)), life_(life), random_(seed), clock_(clock_now()) {}

Plan Planner::plan(std::size_t length, bool damaged, Phase opening) {
  if (damaged && stores_are_encrypted()) {  // no opening takes the file
    while (plan_.size() < length) add_damaged_opening();
    return std::move(plan_);
  }
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

void Planner::add(PlannedCall call) {
  call.clock = clock_ += 10;
  const bool joins = model_.in_transaction();
  run(call, model_);
  // The call joined the caller's transaction, so it committed nothing.
  if (joins && model_.in_transaction()) call.phase = Phase::kInTransaction;
  plan_.push_back(std::move(call));
}

// ---- Arguments ----------------------------------------------------------------------------------

SessionType Planner::kind() {
  return SessionType(static_cast<int32_t>(1 + below(3)));
}

std::string Planner::body() {
  if (one_in(12)) return std::string(1000 + below(6000), 'x');  // often longer than a page
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

// The id of a stored message if there is one.
int64_t Planner::id() {
  const Tables& tables = model_.tables();
  const auto row = tables.messages.lower_bound(
      1 + static_cast<int64_t>(below(static_cast<std::size_t>(tables.largest_id) + 1)));
  return row == tables.messages.end() ? tables.largest_id : row->first;
}

// A time around now, so that messages arrive both in order and out of order.
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

}  // namespace corvan_test
