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
  Answer answer{&query, 0, 0};
  answer.time = time_of([&] { answer.messages = contender.find(query, kNewest).size(); });
  return answer;
}

void ask_block(Contender& contender, const std::vector<SearchQuery>& queries, std::size_t begin,
               std::size_t end, std::vector<Answer>& answers) {
  for (std::size_t i = begin; i < end; ++i) {
    if (i % contender.step() == 0) answers.push_back(ask_one(contender, queries[i]));
  }
}

// A column of each contender with one figure of its times.
template <typename Figure>
void print_figure(const std::string& title, const std::vector<Asked>& asked, Report& report,
                  const Figure& figure) {
  std::vector<std::string> columns{"query", "queries"};
  for (const Asked& each : asked) columns.push_back(each.contender);
  std::vector<Report::Row> rows;
  const auto add_row = [&](const char* name, const auto& times_of_contender) {
    const std::size_t count = times_of_contender(asked.back()).count();
    if (count == 0) return;
    Report::Row row{name, count};
    for (const Asked& each : asked) {
      const Times times = times_of_contender(each);
      row.push_back(times.empty() ? Report::Cell() : Report::Cell(figure(times)));
    }
    rows.push_back(std::move(row));
  };
  for (const QueryClass query_class : kQueryClasses) {
    add_row(name_of(query_class), [=](const Asked& each) { return each.of(query_class); });
  }
  add_row("all but one letter and *", [](const Asked& each) { return each.usual(); });
  report.table(title, columns, rows);
}

void print_slowest(const std::string& store, const Asked& asked, Report& report) {
  std::vector<Answer> slowest = asked.answers;
  std::sort(slowest.begin(), slowest.end(),
            [](const Answer& a, const Answer& b) { return a.time > b.time; });
  std::vector<Report::Row> rows;
  for (const Answer& answer : slowest) {
    if (answer.query->query_class == QueryClass::kSingleLetter) continue;
    if (rows.size() == kSlowest) break;
    rows.push_back(
        {text_of(*answer.query), name_of(answer.query->query_class), answer.time, answer.messages});
  }
  report.table("Slowest queries of " + asked.contender + ": " + store,
               {"text", "query", "us", "messages"}, rows);
}

}  // namespace

Times Asked::of(QueryClass query_class) const {
  Times times;
  for (const Answer& answer : answers) {
    if (answer.query->query_class == query_class) times.add(answer.time);
  }
  return times;
}

Times Asked::usual() const {
  Times times;
  for (const QueryClass query_class : kQueryClasses) {
    if (query_class != QueryClass::kSingleLetter) times.add(of(query_class));
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
  print_slowest(store, asked.back(), report);
}

}  // namespace corvan_bench
