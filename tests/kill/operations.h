// What a process does before it is killed: a plan of operations, chosen from a seed and from the
// rows that the model holds, to be run on the store and again on the model.

#ifndef TESTS_KILL_OPERATIONS_H_
#define TESTS_KILL_OPERATIONS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/model/model.h"

namespace corvan_test {

// What a kill can come in the middle of.
enum class Phase : uint8_t {
  kCreating,       // opening a folder without a store
  kOpening,        // opening a store that was closed
  kRecovering,     // opening a store with what a killed process left in its log
  kSaving,         // the single save: two commits
  kBatch,          // several commits of a kind
  kWriting,        // one or two statements, each with its commit
  kCompound,       // several statements in one transaction of the operation's own
  kInTransaction,  // an operation inside the caller's transaction
  kCommitting,     // commit_transaction()
  kVacuuming,      // a deletion that compacts the file
  kRewriting,      // a large body: the log grows to where it is checkpointed while open
  kClosing,        // close_db(): the checkpoint and the end of the log
  kDeleting,       // opening, and deleting, a file that is damaged
};
constexpr std::size_t kPhases = 13;
const char* name(Phase phase);

// One operation with its arguments. Its result is a number: an id, or whether it succeeded.
struct Operation {
  std::string text;
  Phase phase = Phase::kWriting;
  int64_t clock = 0;         // the time while it runs
  bool gives_store = false;  // once it has returned, the file has its schema
  std::function<int64_t(Corvan::CvDbSingleton&)> on_store;
  std::function<int64_t(Model&)> on_model;
  // Outside a transaction: the states between its own commits, from the state before it. None when
  // it has a single commit.
  std::function<std::vector<Model>(const Model&)> between;
};
using Plan = std::vector<Operation>;

int64_t run(const Operation& operation, Corvan::CvDbSingleton& store);
int64_t run(const Operation& operation, Model& model);

// How a store's life goes.
enum class Life : uint8_t {
  kFresh,    // begins in an empty folder and is short
  kDamaged,  // begins with a file that is no store
  kGrowing,  // goes on until there are thousands of messages
  kHeavy,    // has few messages with large bodies
};

class Planner {
 public:
  // Plans for a process that opens the store in `folder`, which holds what `model` does.
  Planner(const Model& model, std::string folder, Life life, uint64_t seed);

  // `damaged` begins with meeting a damaged file. `opening` is the phase of the first opening after
  // that; a store that is opened again was closed in between.
  Plan plan(std::size_t length, bool damaged, Phase opening);

 private:
  struct Choice {
    std::size_t weight;
    void (Planner::*add)();
  };

  void add_any();
  void add_any_of(const std::vector<Choice>& choices);
  void add(Operation operation);
  // `call` takes the store or the model.
  template <typename Call>
  Operation operation(const std::string& text, Phase phase, Call call);
  // Each of these changes messages, commits, then changes conversations.
  template <typename Call>
  void add_messages_first(const std::string& text, Phase phase, Call call);
  // `call` takes the store or the model, and how many elements of its batch are in turn.
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

}  // namespace corvan_test

#endif  // TESTS_KILL_OPERATIONS_H_
