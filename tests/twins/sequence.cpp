#include "tests/twins/sequence.h"

#include <filesystem>
#include <map>
#include <new>
#include <stdexcept>

#include "tests/model/operations.h"
#include "tests/model/step.h"
#include "tests/model/values.h"
#include "tests/support/clock.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/twins/outside.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

constexpr const char* kRows[] = {
    "select * from t_message order by id", "select * from t_session order by rowid",
    "select * from t_sync order by rowid", "select type,name,sql from sqlite_master order by name",
    "pragma wal_checkpoint(passive)",      "begin immediate",
};

}  // namespace

TwinSequence::TwinSequence(std::ostream& out, uint64_t seed)
    : out_(out),
      random_(seed),
      second_(folder_.file("corvan"), 0),
      disturbances_(folder_.path(), random_()) {
  out_ << "seed " << seed << "\n";
  set_clock(1000000);
  model_.open("me");
  write("open: " + text(store().init_open_db(cvrtc::Pathname(folder_.path()), "", "me")));
}

TwinSequence::~TwinSequence() {
  CvDbSingleton::delete_instance();
}

void TwinSequence::run(std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (random_() % 4 == 0) {
      disturb();
    } else {
      operate();
    }
    if (i % 5 == 4) write_rows();
  }
  disturbances_.end();
  second_.close();
  store().close_db();
  write_outcome("close");
  write_files();
  for (int i = 0; i < 2; ++i) {
    write_outcome("open: " + text(store().init_open_db(cvrtc::Pathname(folder_.path()), "", "me")));
  }
  write_rows();
  CvDbSingleton::delete_instance();
  write_files();
}

void TwinSequence::disturb() {
  second_.close();
  write_outcome(disturbances_.one(model_.user()));
}

void TwinSequence::operate() {
  Step step(store(), model_, second_, folder_.path(), random_());
  std::string result;
  try {
    run_operation(step);
    result = step.actual();
  } catch (const std::runtime_error& error) {
    result = std::string("threw ") + error.what();
  }
  write_outcome(step.call() + " -> " + result);
}

void TwinSequence::write_outcome(const std::string& result) {
  write(result);
  for (const std::string& line : log_.take()) write("  log " + line);
  for (const std::string& sql : take_ledger()) write("  sql " + sql);
  const FetchedTexts fetched = take_fetched_texts();
  const StepCounts steps = take_steps();
  write("  " + std::to_string(fetched.errors) + " " + std::to_string(fetched.expanded) +
        " texts, " + std::to_string(steps.full_scan_steps) + " scanned, " +
        std::to_string(steps.sorts) + " sorts");
  if (store_connection() == nullptr) return write("  closed");
  write("  " + store().get_error() + (in_transaction() ? ", in a transaction, " : ", ") +
        std::to_string(open_statements()) + " open statements");
  take_fetched_texts();
}

void TwinSequence::write_rows() {
  Outside reader(folder_.file("corvan"));
  for (const char* sql : kRows) write(std::string("  ") + sql + ": " + reader.run(sql));
}

void TwinSequence::write_files() {
  std::map<std::string, std::uintmax_t> sizes;
  for (const auto& each : std::filesystem::directory_iterator(folder_.path())) {
    sizes[each.path().filename().string()] = each.file_size();
  }
  for (const auto& [name, size] : sizes) write("  file " + name + " " + std::to_string(size));
}

void TwinSequence::write(const std::string& text) {
  std::string line = text;
  for (std::size_t at = 0; (at = line.find(folder_.path(), at)) != std::string::npos;) {
    line.replace(at, folder_.path().size(), "FOLDER/");
  }
  out_ << line << "\n";
}

}  // namespace corvan_test
