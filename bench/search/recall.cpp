#include "bench/search/recall.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <stdexcept>

namespace corvan_bench {

namespace {

double common(const Contender::Ids& ids, const Contender::Ids& others) {
  Contender::Ids both;
  std::set_intersection(ids.begin(), ids.end(), others.begin(), others.end(),
                        std::back_inserter(both));
  return static_cast<double>(both.size());
}

}  // namespace

struct Matches::Counts {
  int queries = 0;
  double matching = 0;  // found by the first contender
  double found = 0;     // of these
  double besides = 0;

  Report::Cell percent() const { return matching > 0 ? Report::Cell(100 * found / matching) : ""; }
};

Matches::Matches(const std::vector<SearchQuery>& queries, std::size_t of_each_class, int64_t all)
    : all_(all) {
  std::map<QueryClass, std::size_t> counts;
  for (const SearchQuery& query : queries) {
    if (counts[query.query_class]++ < of_each_class) queries_.push_back(query);
  }
}

void Matches::add(Contender& contender) {
  Found found{contender.name(), {}};
  for (const SearchQuery& query : queries_) {
    found.ids.push_back(contender.find(query, all_));
    std::sort(found.ids.back().begin(), found.ids.back().end());
  }
  found_.push_back(std::move(found));
}

double Matches::different(const Contender::Ids& ids, const Contender::Ids& others) {
  return static_cast<double>(ids.size() + others.size()) - 2 * common(ids, others);
}

const std::vector<Contender::Ids>& Matches::of(const std::string& contender) const {
  for (const Found& found : found_) {
    if (found.contender == contender) return found.ids;
  }
  throw std::runtime_error("no matches of " + contender);
}

Matches::Counts Matches::count(QueryClass query_class, const Found& found) const {
  Counts counts;
  for (std::size_t i = 0; i < queries_.size(); ++i) {
    if (queries_[i].query_class != query_class) continue;
    const Contender::Ids& matching = found_.front().ids[i];
    const double both = common(matching, found.ids[i]);
    ++counts.queries;
    counts.matching += static_cast<double>(matching.size());
    counts.found += both;
    counts.besides += static_cast<double>(found.ids[i].size()) - both;
  }
  return counts;
}

void Matches::print(const std::string& store, Report& report) const {
  std::vector<std::string> columns{"query", "queries", "messages"};
  for (std::size_t i = 1; i < found_.size(); ++i) columns.push_back(found_[i].contender);
  for (std::size_t i = 1; i < found_.size(); ++i) {
    columns.push_back(found_[i].contender + ", besides");
  }
  std::vector<Report::Row> rows;
  for (const QueryClass query_class : kQueryClasses) {
    const Counts all = count(query_class, found_.front());
    if (all.queries == 0) continue;
    Report::Row row{name_of(query_class), all.queries, all.matching};
    for (std::size_t i = 1; i < found_.size(); ++i) {
      row.push_back(count(query_class, found_[i]).percent());
    }
    for (std::size_t i = 1; i < found_.size(); ++i) {
      row.push_back(count(query_class, found_[i]).besides);
    }
    rows.push_back(std::move(row));
  }
  report.table("Found of all messages that match, %, and others besides: " + store, columns, rows);
}

}  // namespace corvan_bench
