#include "tests/faults/power_loss.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "tests/support/plain_text.h"
#include "tests/support/store_test.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "\n    " + line;
  return text;
}

}  // namespace

Outcome Reopening::reopen(const DiskImage& image, bool garbage) {
  std::filesystem::remove_all(folder_.path());
  std::filesystem::create_directory(folder_.path());
  write_folder(folder_.path(), image);
  if (garbage) write_file(folder_.file("corvan-shm"), std::string(32768, '\x5a'));
  const std::string readable = files_with_plain_text(folder_.path());
  if (!readable.empty()) return {"plain text in" + readable, {}};
  const bool opened = open_store(folder_.path());
  Outcome outcome = look(opened);
  CvDbSingleton::get_instance()->close_db();
  take_ledger();
  return outcome;
}

Outcome Reopening::look(bool opened) {
  if (!opened) return {"the store does not open", {}};
  const Rows lines = log_.take();
  if (!lines.empty()) return {"the store complains when it is opened:" + joined(lines), {}};
  try {
    static const std::string sql = std::string("pragma integrity_check;") + kStoreState;
    Rows all = rows(folder_.file("corvan"), sql);
    if (all.front() != "ok") return {"the file is not sound:" + joined(all), {}};
    all.erase(all.begin());
    return {"", all};
  } catch (const std::runtime_error& error) {
    return {std::string("the file cannot be read: ") + error.what(), {}};
  }
}

Findings PowerLoss::run() {
  const std::set<std::size_t> points = choose_points();
  for (Disk disk(history_.record);; disk.advance()) {
    if (points.count(disk.events()) != 0) lose_power(disk);
    if (disk.at_end()) return std::move(findings_);
  }
}

std::set<std::size_t> PowerLoss::choose_points() {
  std::vector<std::size_t> all(history_.record.events.size() + 1);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  std::shuffle(all.begin(), all.end(), random_);
  if (all.size() > bounds_.points) {
    all.resize(static_cast<std::size_t>(bounds_.points));
  }
  std::set<std::size_t> points(all.begin(), all.end());
  for (const History::Acknowledged& mark : history_.acknowledged) points.insert(mark.event);
  return points;
}

void PowerLoss::lose_power(const Disk& disk) {
  ++findings_.moments;
  for (const Fate& fate : disk.fates(bounds_.fates, random_)) {
    const Outcome& outcome = outcome_of(disk.image(fate), disk.anything_pending());
    const std::string complaint = judge(outcome, disk.events());
    if (complaint.empty()) continue;
    ++findings_.tally.lost;
    findings_.complaints.push_back(described(disk, fate) + complaint);
  }
}

const Outcome& PowerLoss::outcome_of(const DiskImage& image, bool pending) {
  std::size_t key = 0;
  for (const auto& [name, content] : image) {
    key = key * 31 + std::hash<std::string>()(name);
    key = key * 31 + std::hash<std::string>()(content);
  }
  const auto [at, added] = outcomes_.try_emplace(key);
  if (added) {
    at->second = reopening_.reopen(image, key % 4 == 0);
    ++findings_.tally.points;
    if (pending) ++findings_.tally.faults;
  }
  return at->second;
}

std::string PowerLoss::judge(const Outcome& outcome, std::size_t event) const {
  if (!outcome.fault.empty()) return outcome.fault;
  const auto [first, last] = history_.allowed(event);
  for (std::size_t i = first; i <= last; ++i) {
    if (history_.states[i].content == outcome.state) return "";
  }
  for (std::size_t i = 0; i < history_.states.size(); ++i) {
    if (history_.states[i].content != outcome.state) continue;
    return "the store is in state " + std::to_string(i) + ", allowed are " + std::to_string(first) +
           " to " + std::to_string(last);
  }
  return "the store is in none of its states:" + joined(outcome.state);
}

std::string PowerLoss::described(const Disk& disk, const Fate& fate) const {
  std::ostringstream text;
  text << "CORVAN_POWER_SEED=" << bounds_.seed << " " << name_ << ", power lost after event "
       << disk.events() << " of " << history_.record.events.size();
  if (disk.events() > 0) text << " (" << history_.record.events[disk.events() - 1] << ")";
  text << ", " << fate.name << ": ";
  return text.str();
}

}  // namespace corvan_test
