#include "tests/support/operations/answers.h"

#include <sqlite3.h>

#include <algorithm>

namespace corvan_test {

int Answer::code() const {
  return steps.empty() ? prepared : steps.back();
}

std::size_t Answer::rows() const {
  return static_cast<std::size_t>(std::count(steps.begin(), steps.end(), SQLITE_ROW));
}

const Answer* Answers::take(const std::string& text) {
  if (closed_) return nullptr;
  if (at_ == all_.size()) {
    if (complaint_.empty()) complaint_ = "not run: " + text;
    return nullptr;
  }
  const Answer& answer = all_[at_++];
  if (answer.sql.compare(0, text.size(), text) != 0 && complaint_.empty()) {
    complaint_ = "run: " + answer.sql + ", in place of: " + text;
  }
  if (!answer.steps.empty()) last_row_id_ = answer.last_row_id;
  closed_ = answer.prepared == SQLITE_CORRUPT || answer.prepared == SQLITE_NOTADB;
  return &answer;
}

int Answers::run(const std::string& text) {
  const Answer* answer = take(text);
  return answer == nullptr ? -1 : answer->code();
}

bool Answers::row_or_done(const std::string& text) {
  const int code = run(text);
  return code == SQLITE_ROW || code == SQLITE_DONE;
}

int Answers::rows(const std::string& text) {
  const Answer* answer = take(text);
  if (answer == nullptr || answer->prepared != SQLITE_OK) return -1;
  return static_cast<int>(answer->rows());
}

bool Answers::prepared(const std::string& text) const {
  if (closed_ || at_ == all_.size()) return false;
  return all_[at_].sql.compare(0, text.size(), text) == 0 && all_[at_].prepared == SQLITE_OK;
}

bool Answers::commit() {
  if (done("commit transaction")) return true;
  run("rollback transaction");
  return false;
}

std::string Answers::complaint() const {
  if (complaint_.empty() && at_ < all_.size()) return "run: " + all_[at_].sql;
  return complaint_;
}

}  // namespace corvan_test
