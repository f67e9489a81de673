// Records a store at work, and says which states a power loss may leave.

#ifndef TESTS_FAULTS_DISK_HISTORY_H_
#define TESTS_FAULTS_DISK_HISTORY_H_

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/faults/disk_record.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

// The content of a store as text: schema, user_version, rows and the largest id ever assigned.
// Messages being sent (1) are shown as failed (2), because opening the store marks them as failed.
using StoreState = std::vector<std::string>;

// The SQL that reads a StoreState.
extern const char* const kStoreState;

// The state of a new store. A file without a schema becomes one at its next opening.
const StoreState& new_store_state();

// Opens the store on the folder, for the user "me".
bool open_store(const std::string& folder);

struct History {
  // The content that was committed after `event` events.
  struct State {
    std::size_t event;
    StoreState content;
  };
  // After `event` events the caller knew that the store had reached this state.
  struct Acknowledged {
    std::size_t event;
    std::size_t state;
  };

  DiskRecord record;
  std::vector<State> states;  // the first one is that of record.start
  std::vector<Acknowledged> acknowledged;

  // The first and the last state that a power loss after this many events may leave: from the last
  // acknowledged state to that of the commit in progress.
  std::pair<std::size_t, std::size_t> allowed(std::size_t event) const;
};

// Records what a store in a temporary folder does to the disk, and its state after each commit.
// Only one object may exist at a time.
class Recording {
 public:
  explicit Recording(const DiskImage& start,
                     DiskRecorder::Syncs syncs = DiskRecorder::Syncs::kCounted);
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording();

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }
  std::string file(const std::string& name) const { return folder_.file(name); }

  // Opens the store, then acknowledges.
  void open();

  // Notes that the store has returned: from now on the caller relies on everything done so far.
  void acknowledge();

  // Runs `call`, then acknowledges.
  template <typename Call>
  void run(const Call& call) {
    call(store());
    acknowledge();
  }

  // Ends the recording, closes the store and reads the states from the record. Throws if the record
  // does not match the folder.
  History finish();

  // The linker's wrapper calls it after each step that left the store outside of a transaction.
  void after_step();

 private:
  LogCapture quiet_{cvrtc::LS_NONE};
  TemporaryFolder folder_;
  std::unique_ptr<DiskRecorder> recorder_;
  std::vector<std::size_t> commits_;  // the number of events after each
  std::vector<History::Acknowledged> acknowledged_;
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_DISK_HISTORY_H_
