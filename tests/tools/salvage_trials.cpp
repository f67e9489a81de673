// Damages copies of a store in fixed ways, salvages each, and prints a table that compares what was
// recovered with what the sound pages hold. Usage: salvage_trials PROGRAM STORE. Adds messages to
// the store. Exit status 1 if a row that is only on sound pages is missed, or if a row was altered.

#include <sys/wait.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"
#include "tests/tools/store_pages.h"
#include "tools/store/connection.h"

namespace {

using namespace corvan_test;
using Random = std::mt19937_64;
using BadPages = std::set<std::size_t>;

struct Trial {
  std::string name;
  // Damages the content and returns the damaged pages.
  std::function<BadPages(std::string& content, Random& random)> damage;
};

BadPages overwrite_share(std::string& content, Random& random, bool with_noise) {
  BadPages bad = random_pages(random, content, content.size() / kPageSize / 100);
  for (const std::size_t page : bad) {
    const std::string noise = random_bytes(random, kPageSize);
    overwrite(content, page, 0, with_noise ? noise : std::string(kPageSize, '\0'));
  }
  return bad;
}

BadPages cut(std::string& content, std::size_t percent) {
  const std::size_t pages = content.size() / kPageSize;
  content.resize(content.size() * percent / 100);
  BadPages bad;
  for (std::size_t page = content.size() / kPageSize + 1; page <= pages; ++page) bad.insert(page);
  return bad;
}

// A damaged file, its log if it has one, and the messages that can be recovered.
struct Case {
  std::string name;
  std::string content;
  std::string log;
  std::size_t bad_pages = 0;
  std::set<std::int64_t> best;  // messages that are only on sound pages
};

std::vector<Trial> trials(const StorePages& messages) {
  std::vector<Trial> all;
  for (int i = 1; i <= 3; ++i) {
    all.push_back(
        {"1 % of pages noise, " + std::to_string(i), [](std::string& content, Random& random) {
           return overwrite_share(content, random, true);
         }});
  }
  for (int i = 1; i <= 3; ++i) {
    all.push_back(
        {"1 % of pages zeros, " + std::to_string(i), [](std::string& content, Random& random) {
           return overwrite_share(content, random, false);
         }});
  }
  for (const std::size_t percent : {90U, 50U, 10U}) {
    all.push_back(
        {"cut to " + std::to_string(percent) + " %",
         [percent](std::string& content, Random& /*random*/) { return cut(content, percent); }});
  }
  for (const std::size_t count : {std::size_t{16}, std::size_t{100}, kPageSize}) {
    all.push_back({"first " + std::to_string(count) + " bytes noise",
                   [count](std::string& content, Random& random) {
                     overwrite(content, 1, 0, random_bytes(random, count));
                     return BadPages{1};
                   }});
  }
  for (const std::size_t size : {512U, 8192U, 65536U}) {
    all.push_back({"page size " + std::to_string(size) + " in the header",
                   [size](std::string& content, Random& /*random*/) {
                     const std::size_t code = size == 65536 ? 1 : size;
                     overwrite(content, 1, 16,
                               {static_cast<char>(code >> 8), static_cast<char>(code & 0xff)});
                     return BadPages{};
                   }});
  }
  for (const int bits : {1, 8, 64}) {
    all.push_back({std::to_string(bits) + (bits == 1 ? " bit" : " bits") + " of each inner page",
                   [&messages, bits](std::string& content, Random& random) {
                     for (const std::size_t page : messages.inner) {
                       for (int i = 0; i < bits; ++i) {
                         flip_bit(content, page, random() % (8 * kPageSize));
                       }
                     }
                     return BadPages(messages.inner.begin(), messages.inner.end());
                   }});
  }
  all.push_back({"each inner page noise", [&messages](std::string& content, Random& random) {
                   for (const std::size_t page : messages.inner) {
                     overwrite(content, page, 0, random_bytes(random, kPageSize));
                   }
                   return BadPages(messages.inner.begin(), messages.inner.end());
                 }});
  return all;
}

// Runs the program and returns its report. Throws if the program fails.
nlohmann::json salvage(const std::string& program, const std::string& damaged,
                       const std::string& made, const std::string& report) {
  const std::string command =
      "'" + program + "' salvage '" + damaged + "' '" + made + "' --json >'" + report + "'";
  const int status = std::system(command.c_str());  // NOLINT(cert-env33-c): trusted names
  if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) throw std::runtime_error(command + ": failed");
  return nlohmann::json::parse(read_file(report));
}

std::int64_t number(const std::string& file, const std::string& sql) {
  return std::stoll(rows(file, sql).at(0));
}

// Counts the messages of `made` that are as in `sound`.
std::int64_t count_equal(const std::string& made, const std::string& sound) {
  std::set<std::string> known;
  for (const std::string& row : rows(sound, "select * from t_message")) known.insert(row);
  std::int64_t equal = 0;
  for (const std::string& row : rows(made, "select * from t_message")) {
    equal += static_cast<std::int64_t>(known.count(row));
  }
  return equal;
}

std::string text_of(const nlohmann::json& counts) {
  const std::string least = counts["lost_at_least"].dump();
  if (counts["lost_at_most"].is_null()) return least + "+";
  const std::string most = counts["lost_at_most"].dump();
  return least == most ? least : least + "-" + most;
}

std::set<std::int64_t> message_ids(const std::string& file) {
  std::set<std::int64_t> ids;
  for (const std::string& id : rows(file, "select id from t_message")) ids.insert(std::stoll(id));
  return ids;
}

// The messages that SQLite reads from a file and its log.
std::set<std::int64_t> ids_read(const std::string& content, const std::string& log) {
  const TemporaryFolder folder;
  write_file(folder.file("read"), content);
  write_file(folder.file("read-wal"), log);
  return message_ids(folder.file("read"));
}

// Adds a tenth more messages to the store, in 100 commits that stay in its log, and returns cases
// in which the log is damaged. SQLite itself tells which messages the log holds up to the damage.
std::vector<Case> log_cases(const std::string& sound) {
  std::string content;
  std::string log;
  {
    const corvan_tool::Connection writer(sound);
    const auto run = [&writer](const std::string& sql) {
      if (writer.run(sql) != SQLITE_DONE) throw std::runtime_error(sql + ": " + writer.error());
    };
    run("pragma wal_autocheckpoint=0");
    for (int i = 0; i < 100; ++i) {
      run("insert into t_message(session_id,session_type,content,sent_time,server_uid) select "
          "session_id,session_type,content,sent_time,'again'||id from t_message where id%1000=" +
          std::to_string(i) + " and server_uid not like 'again%'");
    }
    content = read_file(sound);
    log = read_file(sound + "-wal");
  }
  constexpr std::size_t kFrame = 24 + kPageSize;
  std::vector<Case> cases = {{"log lost", content, "", log.size() / kFrame, {}},
                             {"log damaged in the middle", content, log, 1, {}},
                             {"log whole", content, log, 0, {}}};
  flip_bit(cases[1].log, 1, 8 * (32 + log.size() / kFrame / 2 * kFrame + 1000));
  for (Case& damaged : cases) damaged.best = ids_read(damaged.content, damaged.log);
  return cases;
}

struct Recovery {
  std::int64_t recovered = 0;
  std::int64_t missed = 0;   // messages that could have been recovered
  std::int64_t altered = 0;  // recovered messages that are not as in the sound store
};

Recovery compare(const std::string& made, const std::string& sound,
                 const std::set<std::int64_t>& best) {
  Recovery recovery;
  const std::set<std::int64_t> found = message_ids(made);
  recovery.recovered = static_cast<std::int64_t>(found.size());
  for (const std::int64_t id : best) recovery.missed += found.count(id) == 0 ? 1 : 0;
  recovery.altered = recovery.recovered - count_equal(made, sound);
  return recovery;
}

void print_line(const Case& damaged, const Recovery& recovery, std::int64_t all,
                const nlohmann::json& report) {
  const auto share = [all](std::int64_t count) {
    return 100.0 * static_cast<double>(count) / static_cast<double>(all);
  };
  const nlohmann::json& counts = report["tables"]["t_message"];
  std::printf("| %s | %zu | %.2f %% | %.2f %% | %s | %lld | %s | %lld | %lld | %.1f |\n",
              damaged.name.c_str(), damaged.bad_pages,
              share(static_cast<std::int64_t>(damaged.best.size())), share(recovery.recovered),
              text_of(counts).c_str(), static_cast<long long>(all - recovery.recovered),
              counts["doubtful"].dump().c_str(), static_cast<long long>(recovery.missed),
              static_cast<long long>(recovery.altered), report["seconds"].get<double>());
  std::fflush(stdout);
}

// Salvages a case and prints its line. Returns whether nothing was missed or altered.
bool run_case(const Case& damaged, const std::string& program, const std::string& sound) {
  const TemporaryFolder folder;
  write_file(folder.file("damaged"), damaged.content);
  if (!damaged.log.empty()) write_file(folder.file("damaged-wal"), damaged.log);
  const nlohmann::json report =
      salvage(program, folder.file("damaged"), folder.file("made"), folder.file("report"));
  Recovery recovery;
  recovery.missed = static_cast<std::int64_t>(damaged.best.size());
  if (!report["folder"].is_null()) {
    recovery = compare(folder.file("made/corvan"), sound, damaged.best);
  }
  print_line(damaged, recovery, number(sound, "select count(*) from t_message"), report);
  return recovery.missed == 0 && recovery.altered == 0;
}

// Returns whether nothing was missed or altered.
bool run_all(const std::string& program, const std::string& sound) {
  const StorePages messages = store_pages(sound, "t_message");
  std::printf(
      "| Damage | Pages | Best possible | Recovered | Said lost | Lost | Doubtful | Missed | "
      "Altered | Seconds |\n|---|---|---|---|---|---|---|---|---|---|\n");
  bool is_best = true;
  unsigned seed = 0;
  for (const Trial& trial : trials(messages)) {
    Case damaged;
    damaged.name = trial.name;
    damaged.content = read_file(sound);
    Random random(++seed);
    const BadPages bad = trial.damage(damaged.content, random);
    damaged.bad_pages = bad.size();
    damaged.best = rows_beside(messages, bad);
    is_best = run_case(damaged, program, sound) && is_best;
  }
  for (const Case& damaged : log_cases(sound)) {
    is_best = run_case(damaged, program, sound) && is_best;
  }
  return is_best;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: salvage_trials PROGRAM STORE\n";
    return 2;
  }
  try {
    return run_all(argv[1], std::string(argv[2]) + "/corvan") ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "salvage_trials: " << error.what() << '\n';
    return 2;
  }
}
