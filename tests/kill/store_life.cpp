#include "tests/kill/store_life.h"

#include <algorithm>
#include <filesystem>

#include "tests/support/clock.h"
#include "tests/support/encryption.h"
#include "tests/support/plain_text.h"

namespace corvan_test {

StoreLife::StoreLife(uint64_t seed, Watch& watch, Statistics& statistics,
                     const std::vector<std::string>& schema)
    : random_(seed), watch_(watch), statistics_(statistics), schema_(schema) {
  static constexpr std::array<Life, 4> short_lives = {Life::kFresh, Life::kDamaged, Life::kFresh,
                                                      Life::kDamaged};
  const uint64_t turn = seed % 12;
  life_ = short_lives.at(static_cast<std::size_t>(turn % short_lives.size()));
  if (turn == 3) life_ = Life::kGrowing;
  if (turn == 6) life_ = Life::kHeavy;
  set_clock(1000000);
  if (life_ == Life::kDamaged) lay_damaged_file();
  kills_left_ = 1 + below(4);
  if (life_ == Life::kGrowing) kills_left_ = 40;
  if (life_ == Life::kDamaged) kills_left_ = 1;
}

std::string StoreLife::kill_once(std::optional<Phase> wanted) {
  --kills_left_;
  const Plan plan = next_plan();
  const Killed killed = kill_at_work(plan, choose_aim(plan, wanted), watch_);
  count(plan, killed);
  const std::string problem = check(plan, killed);
  statistics_.largest = std::max(statistics_.largest, model_.tables().messages.size());
  return problem.empty() ? "" : report(plan, killed) + problem;
}

Plan StoreLife::next_plan() {
  std::size_t length = 3 + below(life_ == Life::kGrowing ? 40 : 15);
  if (life_ == Life::kHeavy) length += 15;
  Planner planner(model_, folder_.path(), life_, random_());
  return planner.plan(length, damaged(), opening());
}

std::string StoreLife::check(const Plan& plan, const Killed& killed) {
  if (!killed.otherwise.empty()) return "the process " + killed.otherwise + "\n";
  const std::string readable = files_with_plain_text(folder());
  if (!readable.empty()) return "plain text in" + readable + "\n";
  const std::size_t acknowledged = killed.results.size();
  for (std::size_t i = 0; i < acknowledged; ++i) {
    const int64_t expected = run(plan[i], model_);
    if (killed.results[i] == expected) continue;
    return plan[i].text + " answered " + std::to_string(killed.results[i]) + " instead of " +
           std::to_string(expected) + "\n";
  }
  if (damaged() && (acknowledged == 0 || stores_are_encrypted())) return check_damaged();
  for (std::size_t i = 0; i < acknowledged; ++i) has_schema_ |= plan[i].gives_store;

  const PlannedCall* next = acknowledged < plan.size() ? &plan[acknowledged] : nullptr;
  const Expected expected{possible_states(model_, next), schema_, !has_schema_};
  return check_store(expected);
}

void StoreLife::lay_damaged_file() {
  std::string noise;
  for (std::size_t left = 1 + below(20000); left > 0; --left) {
    noise += static_cast<char>(below(256));
  }
  damage_ = noise;
  if (below(2) == 0) {
    const TemporaryFolder sound;
    check_with_store(sound.path(), {{Model()}, schema_, false}, 1);
    damage_ = read_file(sound.file("corvan")).replace(100, 16, std::string(16, '\xff'));
  }
  write_file(file(), damage_);
}

Phase StoreLife::opening() const {
  if (!has_schema_) return Phase::kCreating;
  const std::string log = folder_.file("corvan-wal");
  const bool left = file_exists(log) && std::filesystem::file_size(log) > 0;
  return left ? Phase::kRecovering : Phase::kOpening;
}

Aim StoreLife::choose_aim(const Plan& plan, std::optional<Phase> wanted) {
  std::array<std::vector<std::size_t>, kPhases> operations;
  // Only the later large bodies fill the log until it is checkpointed.
  for (std::size_t i = life_ == Life::kHeavy ? plan.size() / 2 : 0; i < plan.size(); ++i) {
    operations.at(static_cast<std::size_t>(plan[i].phase)).push_back(i);
  }
  const auto has = [&operations](std::size_t phase) { return !operations.at(phase).empty(); };
  std::size_t phase = 0;
  do {
    phase = below(kPhases);
  } while (!has(phase));
  const auto preferred = static_cast<std::size_t>(wanted.value_or(Phase{}));
  if (wanted && has(preferred)) phase = preferred;
  const auto first = static_cast<std::size_t>(plan.front().phase);
  if (!has_schema_ && has(first) && below(2) == 0) phase = first;
  const std::size_t target = operations.at(phase)[below(operations.at(phase).size())];
  const std::size_t usual = watch_.microseconds(plan[target].phase);
  const std::size_t longest = usual == 0 ? 1000 : usual + usual / 4;
  return {target, static_cast<uint32_t>(below(longest + 1))};
}

void StoreLife::count(const Plan& plan, const Killed& killed) {
  ++statistics_.tally.points;
  if (!killed.otherwise.empty()) {
    ++statistics_.tally.aborted;
    return;
  }
  ++statistics_.tally.faults;
  if (killed.running) {
    ++statistics_.hits.at(static_cast<std::size_t>(plan[*killed.running].phase));
  }
  if (ends_inside_commit(folder_.file("corvan-wal"))) ++statistics_.inside_commits;
}

std::string StoreLife::check_damaged() {
  if (file_exists(file()) && read_file(file()) != damage_) return "the damaged file has changed\n";
  if (stores_are_encrypted()) return file_exists(file()) ? "" : "the damaged file is gone\n";
  return check_with_store(folder(), {{Model()}, schema_, false}, 2).problem;
}

template <typename Check>
Finding StoreLife::check_copy(const Expected& expected, const Check& check) const {
  const TemporaryFolder copy;
  std::filesystem::copy(folder(), copy.path());
  return check(copy.path(), expected);
}

std::string StoreLife::check_store(Expected expected) {
  const Finding found = check_copy(expected, check_with_plain_connection);
  if (!found.state) return "in the file: " + found.problem;
  if (found.between) ++statistics_.between_commits;
  expected.states = {*found.state};
  const bool in_place = below(2) == 0;
  const Finding opened =
      in_place ? check_with_store(folder(), expected, 1) : check_copy(expected, open_once);
  if (!opened.state) return "after opening: " + opened.problem;
  model_ = in_place ? *opened.state : *found.state;
  has_schema_ |= in_place;
  return "";
}

Finding StoreLife::open_once(const std::string& folder, const Expected& expected) {
  return check_with_store(folder, expected, 1);
}

std::string StoreLife::report(const Plan& plan, const Killed& killed) {
  std::string lines;
  for (std::size_t i = 0; i < plan.size(); ++i) {
    const bool acknowledged = i < killed.results.size();
    const bool running = killed.running == i;
    if (!acknowledged && !running && i > killed.results.size()) break;
    lines += acknowledged ? "  done     " : running ? "  running  " : "  in doubt ";
    lines += plan[i].text + "\n";
  }
  return lines;
}

}  // namespace corvan_test
