// What a process does before it is killed: a plan of calls, chosen from a seed and from the rows
// that the model holds. The plan runs on the store, then again on the model.

#ifndef TESTS_KILL_PLANNER_H_
#define TESTS_KILL_PLANNER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/model/model.h"

namespace corvan_test {

// What a kill can interrupt.
enum class Phase : uint8_t {
  kCreating,       // opening a folder without a store
  kOpening,        // opening a store that was closed
  kRecovering,     // opening a store with what a killed process left in its log
  kSaving,         // the single save: two commits
  kBatch,          // several commits of the same kind
  kWriting,        // one or two statements, each with its commit
  kCompound,       // several statements in one transaction of the operation's own
  kInTransaction,  // an operation inside the caller's transaction
  kCommitting,     // commit_transaction()
  kVacuuming,      // a deletion that compacts the file
  kRewriting,      // a large body: the log grows until it is checkpointed while open
  kClosing,        // close_db(): the checkpoint and the end of the log
  kDeleting,       // opening, and deleting, a file that is damaged
};
constexpr std::size_t kPhases = 13;
const char* name(Phase phase);

// One operation with its arguments. Its result is a number: an id, or whether it succeeded.
struct PlannedCall {
  std::string text;
  Phase phase = Phase::kWriting;
  int64_t clock = 0;         // the time while it runs
  bool gives_store = false;  // once it has returned, the file has its schema
  std::function<int64_t(Corvan::CvDbSingleton&)> on_store;
  std::function<int64_t(Model&)> on_model;
  // The states between its own commits, outside a transaction, given the state before it. Empty if
  // it commits once.
  std::function<std::vector<Model>(const Model&)> between;
};
using Plan = std::vector<PlannedCall>;

int64_t run(const PlannedCall& call, Corvan::CvDbSingleton& store);
int64_t run(const PlannedCall& call, Model& model);

// The kinds of life that a store can have.
enum class Life : uint8_t {
  kFresh,    // begins in an empty folder and is short
  kDamaged,  // begins with a file that is not a store
  kGrowing,  // grows to thousands of messages
  kHeavy,    // has few messages with large bodies
};

class Planner {
 public:
  // Makes plans for a process that opens the store in `folder`, whose content is `model`.
  Planner(const Model& model, std::string folder, Life life, uint64_t seed);

  // If `damaged`, the plan begins with an opening of a damaged file. `opening` is the phase of the
  // first opening after that; later openings follow a close.
  Plan plan(std::size_t length, bool damaged, Phase opening);

 private:
  struct Choice {
    std::size_t weight;
    void (Planner::*add)();
  };

  void add_any();
  void add_any_of(const std::vector<Choice>& choices);
  void add(PlannedCall call);
  // `call` takes the store or the model.
  template <typename Call>
  PlannedCall planned(const std::string& text, Phase phase, Call call);
  // Adds a call that commits once, as the table of operations says: by one statement, or at the end
  // of its own transaction.
  template <typename Call>
  void add_one_commit(const std::string& name, const std::string& arguments, Call call);
  // Adds a call that changes messages, commits, then changes conversations.
  template <typename Call>
  void add_messages_first(const std::string& text, Phase phase, Call call);
  // `call` takes the store or the model, and how many elements of the batch it uses.
  template <typename Call>
  void add_batch(const std::string& text, std::size_t count, Call call);

  void add_damaged_opening();
  void add_opening(Phase phase);
  void add_marking();
  void add_close();
  void add_start();
  void add_commit();
  void add_sync_time();
  void add_save();
  void add_batch_save();
  void add_large_batch();
  void add_completions();
  void add_set_send_time();
  void add_sent_status();
  void add_read_status();
  void add_receipt();
  void add_content();
  void add_large_content();
  void add_delete_by_ids();
  void add_delete_by_uids();
  void add_clear_message();
  void add_clear_by_time();
  void add_pin();
  void add_draft();
  void add_silence();
  void add_remove_session();
  void add_clear_session();
  void add_clear_unread();

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool one_in(std::size_t count) { return below(count) == 0; }
  std::string room() { return "room" + std::to_string(below(6)); }
  Corvan::SessionType kind();
  std::string user() { return one_in(4) ? "you" : "me"; }
  std::string body();
  std::string server_uid();
  std::string stored_server_uid();
  int64_t id();
  int64_t time();
  Corvan::MessageResponse message();

  Model model_;
  std::string folder_;
  Life life_;
  std::mt19937_64 random_;
  int64_t clock_;
  Plan plan_;
};

// The state before the call and, after it, the state that `call` makes of it.
template <typename Call>
std::vector<Model> after(const Model& before, const Call& call) {
  std::vector<Model> states{before};
  call(states.back());
  return states;
}

// The messages of `model`, the conversations of `other`.
Model with_sessions_of(Model model, const Model& other);

// The phase of an operation that commits once. Of several overloads the first in the header counts.
Phase phase_of(const std::string& name);

template <typename Call>
PlannedCall Planner::planned(const std::string& text, Phase phase, Call call) {
  PlannedCall result;
  result.text = text;
  result.phase = phase;
  result.on_store = [call](Corvan::CvDbSingleton& store) { return int64_t{call(store)}; };
  result.on_model = [call](Model& model) { return int64_t{call(model)}; };
  return result;
}

template <typename Call>
void Planner::add_messages_first(const std::string& text, Phase phase, Call call) {
  PlannedCall all = planned(text, phase, call);
  all.between = [call](const Model& before) {
    return std::vector<Model>{with_sessions_of(after(before, call).back(), before)};
  };
  add(std::move(all));
}

template <typename Call>
void Planner::add_batch(const std::string& text, std::size_t count, Call call) {
  PlannedCall all = planned(text + " of " + std::to_string(count), Phase::kBatch,
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

template <typename Call>
void Planner::add_one_commit(const std::string& name, const std::string& arguments, Call call) {
  add(planned(name + "(" + arguments + ")", phase_of(name), call));
}

}  // namespace corvan_test

#endif  // TESTS_KILL_PLANNER_H_
