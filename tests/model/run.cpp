#include "tests/model/run.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <random>
#include <stdexcept>

#include "tests/model/operations.h"
#include "tests/model/row_text.h"
#include "tests/model/step.h"
#include "tests/support/clock.h"
#include "tests/support/rows.h"
#include "tests/support/sqlite_ledger.h"

namespace corvan_test {

using Corvan::SessionInfo;

namespace {

Rows rows_of(const Tables& tables) {
  Rows rows;
  for (const auto& each : tables.messages) rows.push_back(row_text(each.second));
  for (const SessionRow& s : tables.sessions) rows.push_back(row_text(s));
  for (const auto& [user, s] : tables.syncs) rows.push_back(row_text(user, s));
  return rows;
}

// The elements of one list that the other does not have.
std::string lines(const Rows& rows, const Rows& others) {
  std::string all;
  for (const std::string& row : rows) {
    if (std::find(others.begin(), others.end(), row) == others.end()) {
      all += "\n    " + printable(row);
    }
  }
  return all.empty() ? "\n    the rows that the other has, too, in another number or order" : all;
}

}  // namespace

std::string report(const Difference& difference) {
  return difference.call + "\n  model: " + difference.expected + "\n  store: " + difference.actual +
         "\n";
}

Sequence sequence_of(uint64_t seed, std::size_t length) {
  std::mt19937_64 random(seed);
  Sequence sequence;
  while (sequence.size() < length) sequence.push_back(random());
  return sequence;
}

SideBySide::SideBySide() {
  start_anew();
}

SideBySide::~SideBySide() {
  second_->close();
  Corvan::CvDbSingleton::delete_instance();
}

// A faulty store may have left connections and locks.
void SideBySide::start_anew() {
  Corvan::CvDbSingleton::delete_instance();
  second_.reset();
  folder_ = std::make_unique<TemporaryFolder>();
  second_ = std::make_unique<SecondConnection>(folder_->file("corvan"));
}

std::optional<Difference> SideBySide::run(const Sequence& sequence, std::size_t interval,
                                          std::vector<std::string>* calls) {
  Model model;
  Parted parted;
  std::optional<Difference> difference;
  try {
    empty(model);
  } catch (const std::exception& error) {
    difference = {0, "the start", "no exception", error.what()};
  }
  for (std::size_t i = 0; i < sequence.size() && !difference; ++i) {
    const bool rows_too = (i + 1) % interval == 0 || i + 1 == sequence.size();
    Step step(store(), model, *second_, folder_->path(), sequence[i]);
    try {
      run_operation(step);
      parted = compare(step, model, rows_too);
    } catch (const std::exception& error) {
      parted = {"no exception", error.what()};
    }
    ++operations_;
    if (parted) difference = {i, step.call(), parted->first, parted->second};
    if (calls != nullptr) calls->push_back(step.call());
  }
  take_ledger();
  log_.take();
  if (difference) start_anew();
  return difference;
}

std::string SideBySide::shrink(Sequence sequence) {
  for (std::size_t piece = sequence.size(); piece > 0; piece /= 2) {
    for (std::size_t at = 0; at < sequence.size();) {
      Sequence shorter = sequence;
      const auto from = shorter.begin() + static_cast<std::ptrdiff_t>(at);
      const std::size_t left = sequence.size() - at;
      shorter.erase(from, from + static_cast<std::ptrdiff_t>(std::min(piece, left)));
      if (const auto found = run(shorter, 1)) {
        shorter.resize(std::min(shorter.size(), found->index + 1));
        sequence = shorter;
      } else {
        at += piece;
      }
    }
  }
  std::vector<std::string> calls;
  const auto difference = run(sequence, 1, &calls);
  if (!difference) return "  no difference when it is run again\n";
  std::string all;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    all += "  " + std::to_string(i) + ": " + calls[i] + "\n";
  }
  return all + "  model: " + difference->expected + "\n  store: " + difference->actual + "\n";
}

SideBySide::Parted SideBySide::compare(const Step& step, const Model& model, bool rows_too) {
  if (!step.agrees()) return {{step.expected(), step.actual()}};
  if (in_transaction() != model.in_transaction()) {
    return {{model.in_transaction() ? "in a transaction" : "in no transaction", "otherwise"}};
  }
  if (open_statements() != 0) return {{"no statement is left open", "otherwise"}};
  if (!rows_too) return std::nullopt;
  const Rows expected = rows_of(model.committed());
  const Rows actual = second_->rows();
  if (actual == expected) return std::nullopt;
  return {{lines(expected, actual), lines(actual, expected)}};
}

// Makes both empty and opens them for "me". A new connection has no last row id.
void SideBySide::empty(Model& model) {
  set_clock(1000000);
  second_->close();
  store().close_db();
  if (file_exists(folder_->file("corvan"))) {
    second_->run(
        "begin;delete from t_message;delete from t_session;delete from t_sync;"
        "delete from sqlite_sequence;commit");
  }
  if (!store().init_open_db(cvrtc::Pathname(folder_->path()), "", "me")) {
    throw std::runtime_error("the store does not open");
  }
  model.open("me");
  std::vector<SessionInfo> none;
  store().get_session_list_by_page({}, 0, 0, none);  // resets how the last page ended
}

}  // namespace corvan_test
