#include "bench/search/asking.h"

#include <algorithm>
#include <utility>

#include "bench/support/timing.h"

namespace corvan_bench {

namespace {

constexpr std::size_t kBlock = 100;  // queries
constexpr int64_t kNewest = 20;
constexpr std::size_t kSlowest = 8;

Answer ask_one(Contender& contender, const SearchQuery& query) {
  Answer answer{&query};
  const double before = processor_time();
  answer.time = time_of([&] { answer.messages = contender.find(query, kNewest).size(); });
  answer.processor = processor_time() - before;
  return answer;
}

void ask_block(Contender& contender, const std::vector<SearchQuery>& queries, std::size_t begin,
               std::size_t end, std::vector<Answer>& answers) {
  for (std::size_t i = begin; i < end; ++i) {
    if (i % contender.step() == 0) answers.push_back(ask_one(contender, queries[i]));
  }
}

// Calls `add` with the name of each class, of which there are answers, and with a function that
// gives an Asked's times of it; at last with all usual classes.
template <typename Add>
void for_each_class(const Asked& asked, const Add& add) {
  for (const QueryClass query_class : kQueryClasses) {
    if (asked.of(query_class).empty()) continue;
    add(name_of(query_class),
        [query_class](const Asked& each, auto time) { return each.of(query_class, time); });
  }
  add("all but one letter and *", [](const Asked& each, auto time) { return each.usual(time); });
}

// A column of each contender with one figure of its times.
template <typename Figure>
void print_figure(const std::string& title, const std::vector<Asked>& asked, Report& report,
                  const Figure& figure) {
  std::vector<std::string> columns{"query"};
  for (const Asked& each : asked) columns.push_back(each.contender);
  std::vector<Report::Row> rows;
  for_each_class(asked.back(), [&](const char* name, const auto& times_of) {
    Report::Row row{name};
    for (const Asked& each : asked) {
      const Times times = times_of(each, &Answer::time);
      row.push_back(times.empty() ? Report::Cell() : Report::Cell(figure(times)));
    }
    rows.push_back(std::move(row));
  });
  report.table(title, columns, rows);
}

void print_processor_times(const std::string& store, const Asked& asked, Report& report) {
  std::vector<Report::Row> rows;
  for_each_class(asked, [&](const char* name, const auto& times_of) {
    rows.push_back(summary_row(name, times_of(asked, &Answer::processor)));
  });
  report.table("Newest 20 messages, us of processor time, " + asked.contender + ": " + store,
               summary_columns("query"), rows);
}

void print_slowest(const std::string& store, const Asked& asked, Report& report) {
  std::vector<Answer> slowest = asked.answers;
  std::sort(slowest.begin(), slowest.end(),
            [](const Answer& a, const Answer& b) { return a.processor > b.processor; });
  std::vector<Report::Row> rows;
  for (const Answer& answer : slowest) {
    if (answer.query->query_class == QueryClass::kSingleLetter) continue;
    if (rows.size() == kSlowest) break;
    rows.push_back({text_of(*answer.query), name_of(answer.query->query_class), answer.processor,
                    answer.time, answer.messages});
  }
  report.table("Slowest queries of " + asked.contender + ": " + store,
               {"text", "query", "processor time, us", "us", "messages"}, rows);
}

}  // namespace

Times Asked::of(QueryClass query_class, double Answer::*time) const {
  Times times;
  for (const Answer& answer : answers) {
    if (answer.query->query_class == query_class) times.add(answer.*time);
  }
  return times;
}

Times Asked::usual(double Answer::*time) const {
  Times times;
  for (const Answer& answer : answers) {
    if (answer.query->query_class != QueryClass::kSingleLetter) times.add(answer.*time);
  }
  return times;
}

std::vector<Asked> ask(const std::vector<Contender*>& contenders,
                       const std::vector<SearchQuery>& queries, std::size_t warm_up) {
  std::vector<Asked> asked;
  for (Contender* const contender : contenders) {
    asked.push_back({contender->name(), {}});
    std::vector<Answer> discarded;
    ask_block(*contender, queries, 0, warm_up, discarded);
  }
  for (std::size_t begin = warm_up; begin < queries.size(); begin += kBlock) {
    const std::size_t end = std::min(queries.size(), begin + kBlock);
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      ask_block(*contenders[i], queries, begin, end, asked[i].answers);
    }
  }
  return asked;
}

void print(const std::vector<Asked>& asked, const std::string& store, Report& report) {
  const std::string title = "Newest 20 messages, us, ";
  print_figure(title + "median: " + store, asked, report,
               [](const Times& times) { return times.median(); });
  print_figure(title + "99th percentile: " + store, asked, report,
               [](const Times& times) { return times.percentile(99); });
  print_figure(title + "largest: " + store, asked, report,
               [](const Times& times) { return times.largest(); });
  print_processor_times(store, asked.back(), report);
  print_slowest(store, asked.back(), report);
}

}  // namespace corvan_bench
