// The record of a store at work, and the states that a loss of power may leave it in.

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

// Everything that a store holds, as text: schema, user_version, rows, the largest id ever given.
// Messages being sent (1) read as failed (2): opening marks them so.
using StoreState = std::vector<std::string>;

// The SQL that reads it.
extern const char* const kStoreState;

// Of a store that was just created; a file without a schema will be one at its next opening.
const StoreState& new_store_state();

// Opens the store on the folder, for the user "me".
bool open_store(const std::string& folder);

struct History {
  // What was committed after so many events.
  struct State {
    std::size_t event;
    StoreState content;
  };
  // After so many events the caller knew that the store had got as far as this state.
  struct Acknowledged {
    std::size_t event;
    std::size_t state;
  };

  DiskRecord record;
  std::vector<State> states;  // the first one is that of record.start
  std::vector<Acknowledged> acknowledged;

  // The first and the last state that a loss of power after so many events may leave: from what was
  // acknowledged by then up to the commit that was under way.
  std::pair<std::size_t, std::size_t> allowed(std::size_t event) const;
};

// A closed store in a folder of its own whose work on the disk is written down, with the state
// after each commit. One at a time.
class Recording {
 public:
  explicit Recording(const DiskImage& start,
                     DiskRecorder::Syncs syncs = DiskRecorder::Syncs::kCounted);
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;
  ~Recording();

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }
  std::string file(const std::string& name) const { return folder_.file(name); }

  // Opens the store, which is acknowledged then.
  void open();

  // The store has returned: its caller relies on all that was done until now.
  void acknowledge();

  // Runs `call`, then acknowledges.
  template <typename Call>
  void run(const Call& call) {
    call(store());
    acknowledge();
  }

  // Ends the recording, closes the store and reads the states from the record. Throws when the
  // record is not what is in the folder.
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
