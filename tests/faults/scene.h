// One call on the small store while something fails, and what is checked afterwards.

#ifndef TESTS_FAULTS_SCENE_H_
#define TESTS_FAULTS_SCENE_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/operations/operation.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

// The result of one run.
struct Outcome {
  std::string complaint;  // empty if nothing is wrong
  bool deleted = false;   // SQLite called the file damaged while a statement was being prepared
};

// How much can be checked after a failure.
enum class Certain {
  kEverything,
  kAllButTheResult,  // std::bad_alloc may leave the operation
  kNoRows,           // SQLite has read wrong data unnoticed: only open statements are checked
};

class Scene {
 public:
  Scene();
  ~Scene();

  // The calls of the table whose results can be worked out from SQLite's answers.
  const std::vector<Call>& calls() const { return calls_; }
  // The folder of the store that the calls run on.
  const std::string& folder() const { return folder_.path(); }

  // With Corvan::db_cached, the statements that a call used when it was first made are idle when it
  // is made again, unless this is off. Corvan::db has no idle statements.
  void begin_with_idle_statements(bool on) { idle_ = on; }

  // What the caller does next. Returns a complaint; empty if nothing is wrong.
  using Next = std::function<std::string(Corvan::CvDbSingleton&)>;

  // Makes the call on a fresh copy of the store, with `arm` called right before and `disarm`
  // right after. Then checks
  //  - that it returned what SQLite's results require, or threw std::bad_alloc where it may;
  //  - that no statement is open, and no transaction, unless SQLite refused to end it;
  //  - that after closing and opening again the file is sound, has the whole schema, and contains
  //    exactly the previous rows with the changes of each committed statement; a statement or a
  //    commit that failed may have made all of its changes or none.
  // `next` runs before the store is closed, as the operation left it.
  Outcome run(const Call& call, const std::function<void()>& arm,
              const std::function<void()>& disarm, Certain certain = Certain::kEverything,
              const Next& next = {});

 private:
  // Copies the small store afresh and prepares the call; returns what preparing it did.
  std::vector<Answer> reset(const Call& call);
  // Prepares and finalises the texts of the call, so that their statements are idle.
  void make_idle(const Call& call);
  std::string check_rows(const Call& call, const std::vector<Answer>& answers);
  // The rows after these statements have run on a copy of the store, through a separate connection.
  const std::vector<std::string>& rows_after(const std::vector<std::string>& statements);

  TemporaryFolder image_;
  TemporaryFolder folder_;
  TemporaryFolder replay_;
  std::vector<Call> calls_;
  bool idle_ = true;
  std::map<std::string, std::vector<std::string>> texts_;  // by the call's name
  std::map<std::vector<std::string>, std::vector<std::string>> rows_after_;
  std::vector<std::string> fresh_schema_;
  LogCapture log_{cvrtc::LS_SENSITIVE};
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_SCENE_H_
