#include "tests/damage/examination.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>

#include "db/cv_db_singleton.h"
#include "tests/damage/sweep.h"
#include "tests/support/clock.h"
#include "tests/support/encryption.h"
#include "tests/support/failures.h"
#include "tests/support/log_capture.h"
#include "tests/support/plain_text.h"
#include "tests/support/rows.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

using Corvan::CvDbSingleton;

bool open_store(const std::string& folder) {
  return store().init_open_db(cvrtc::Pathname(folder), "", "me");
}

// Two failures are expected in every store: reading a draft uses a column that does not exist, and
// copying an older store creates its tables and indexes even if they exist.
bool tells_of_failure(const std::string& line) {
  return line != prepare_failed("no such column: draft_message") &&
         line.find(" already exists") == std::string::npos;
}

class Examination {
 public:
  Examination(const std::string& folder, const Expected& expected, Outcome& outcome)
      : folder_(folder),
        file_(folder + "corvan"),
        expected_(expected),
        outcome_(outcome),
        subject_{store(), folder + "old"} {}

  void run() {
    set_clock(1000000);
    if (!file_exists(subject_.old_file)) write_file(subject_.old_file, other_store().at(""));
    Files before = read_files(folder_);
    open();
    const Answers answers = read();
    outcome_.wrong = !expected_.answers.empty() && !outcome_.failed && answers != expected_.answers;
    check_integrity();
    for (const SweepOperation& each : sweep_writes()) operate(each);
    step("close", [] { store().close_db(); });
    if (!outcome_.deleted) open();  // else the new store is checked below
    read();
    step("close", [] { store().close_db(); });
    if (outcome_.deleted && expected_.can_unlink) {
      check_new_store();
    } else {
      outcome_.changed = read_files(folder_)[""] != before[""];
    }
    const std::string readable = files_with_plain_text(folder_);
    if (!readable.empty()) complain("plain text in" + readable, {});
    CvDbSingleton::delete_instance();
  }

 private:
  void open() {
    step("init_open_db", [this] { outcome_.opened |= open_store(folder_); });
  }

  Answers read() {
    Answers answers;
    for (const SweepOperation& each : sweep_reads()) answers.push_back(operate(each));
    return answers;
  }

  std::string operate(const SweepOperation& operation) {
    std::string answer;
    step(operation.name, [&] { answer = operation.run(subject_); });
    return answer;
  }

  void check_integrity() {
    step("check_integrity", [this] {
      std::string result;
      outcome_.found = !store().check_integrity(result);
    });
  }

  // Runs one operation and checks what it did to the file.
  void step(const std::string& name, const std::function<void()>& run) {
    note_running(outcome_, name);
    const bool was_there = file_is_there();
    run();
    const Lines lines = log_.take();
    const bool met = std::any_of(lines.begin(), lines.end(), tells_of_damage_at_prepare);
    for (const std::string& line : lines) {
      if (tells_of_failure(line)) note_failure(outcome_, line);
    }
    const bool gone = was_there && !file_is_there();
    if (gone) note_deletion(outcome_, name);
    if (gone && !met) complain(name + ": deleted the file without damage met at a prepare", lines);
    if (gone && met && stores_are_encrypted()) complain(name + ": deleted the file", lines);
    if (!gone && met && expected_.can_unlink) complain(name + ": kept the damaged file", lines);
    if (met && store_connection() != nullptr) complain(name + ": left the connection open", lines);
    if (open_statements() != 0) complain(name + ": left a statement open", lines);
    if (in_transaction()) complain(name + ": left a transaction open", lines);
  }

  using Lines = std::vector<std::string>;
  void complain(const std::string& text, const Lines& lines) {
    std::string all = text;
    for (const std::string& line : lines) all += "\n    " + line;
    corvan_test::complain(outcome_, all);
  }

  // Whether the name leads to a regular file, directly or through a link.
  bool file_is_there() const {
    std::error_code none;
    return std::filesystem::is_regular_file(file_, none);
  }

  // After a deletion, the first or the second opening creates an empty store that works.
  void check_new_store() {
    note_running(outcome_, "opening anew");
    for (int i = 0; i < 2 && store_connection() == nullptr; ++i) open_store(folder_);
    if (store_connection() == nullptr) return complain("does not open anew", log_.take());
    expect_rows("select count(*) from t_message", {"0"});
    expect_rows("select count(*) from t_session", {"0"});
    expect_rows("select database_version from t_version", {"1"});
    const int64_t id = store().save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "u01", "again",
                                            true, 0, 0, false, 0, 0, "uid", false, false, true);
    Corvan::MessageResponse message;
    message.msg_id_ = id;
    if (!store().get_message_by_id(message) || message.content_ != "again") {
      complain("the new store does not keep a message", log_.take());
    }
    expect_rows("select id,content from t_message", {std::to_string(id) + "|again"});
    expect_rows("pragma integrity_check", {"ok"});
    store().close_db();
    const Lines lines = log_.take();
    if (!lines.empty()) complain("the new store logs a failure", lines);
  }

  void expect_rows(const std::string& sql, const Lines& wanted) {
    const Lines found = rows(file_, sql);
    if (found != wanted) complain("in the new store " + sql + " gives", found);
  }

  std::string folder_;
  std::string file_;
  const Expected& expected_;
  Outcome& outcome_;
  Subject subject_;
  LogCapture log_{cvrtc::LS_WARNING};
};

}  // namespace

Answers answers_of(const Files& files) {
  const TemporaryFolder folder;
  write_files(folder.path(), files);
  const LogCapture silent(cvrtc::LS_NONE);
  const Subject subject{store(), ""};
  Answers answers;
  open_store(folder.path());
  for (const SweepOperation& each : sweep_reads()) answers.push_back(each.run(subject));
  store().close_db();
  return answers;
}

bool tells_of_damage_at_prepare(const std::string& line) {
  return line.find("P-more-C;;;prepare_db;;;11;;;") != std::string::npos ||
         line.find("P-more-C;;;prepare_db;;;26;;;") != std::string::npos;
}

void examine(const std::string& folder, const Expected& expected, Outcome& outcome) {
  Examination(folder, expected, outcome).run();
}

}  // namespace corvan_test
