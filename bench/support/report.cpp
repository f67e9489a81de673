#include "bench/support/report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace corvan_bench {

namespace {

// For three significant digits.
int decimals_of(double value) {
  const double size = std::fabs(value);
  if (size < 1) return 3;
  if (size < 10) return 2;
  return size < 100 ? 1 : 0;
}

// Formats with separators between thousands.
std::string number_text(double value, int decimals) {
  std::array<char, 64> text = {};
  std::snprintf(text.data(), text.size(), "%.*f", decimals, value);
  std::string result = text.data();
  if (decimals == 0) {
    for (std::size_t at = result.size(); at > 3 && result[at - 4] != '-'; at -= 3) {
      result.insert(at - 3, ",");
    }
  }
  return result;
}

std::string number_text(double value) {
  return number_text(value, decimals_of(value));
}

std::string cell_text(const Report::Cell& cell) {
  if (cell.is_string()) return cell.get<std::string>();
  if (cell.is_null()) return "";
  if (cell.is_number_integer()) return number_text(cell.get<double>(), 0);
  return number_text(cell.get<double>());
}

}  // namespace

Report::Report(std::string benchmark, Options options) : options_(std::move(options)) {
  results_["benchmark"] = std::move(benchmark);
  results_["tables"] = nlohmann::ordered_json::array();
  results_["bounds"] = nlohmann::ordered_json::array();
}

void Report::table(const std::string& title, const std::vector<std::string>& columns,
                   const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const std::string& column : columns) widths.push_back(column.size());
  for (const Row& row : rows) {
    verify(row.size() == columns.size(), "a row of " + title + " has a cell for each column");
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], cell_text(row[i]).size());
    }
  }
  const auto line = [&widths](std::size_t i, const std::string& text, bool left) {
    const std::string blanks(widths[i] - text.size(), ' ');
    std::cout << (i == 0 ? "| " : " | ") << (left ? text + blanks : blanks + text);
  };
  std::cout << "\n" << title << "\n\n";
  for (std::size_t i = 0; i < columns.size(); ++i) line(i, columns[i], true);
  std::cout << " |\n";
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const bool left = rows.empty() || rows.front()[i].is_string();
    std::cout << "|-" << std::string(widths[i], '-') << (left ? "-" : ":");
  }
  std::cout << "|\n";
  nlohmann::ordered_json records = nlohmann::ordered_json::array();
  for (const Row& row : rows) {
    nlohmann::ordered_json record;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line(i, cell_text(row[i]), row[i].is_string());
      record[columns[i]] = row[i];
    }
    std::cout << " |\n";
    records.push_back(std::move(record));
  }
  std::cout << std::flush;
  results_["tables"].push_back({{"title", title}, {"rows", std::move(records)}});
}

void Report::bound(const std::string& what, double measured, double at_most) {
  add_bound(what, measured, "at most", at_most, measured <= at_most);
}

void Report::bound_below(const std::string& what, double measured, double at_least) {
  add_bound(what, measured, "at least", at_least, measured >= at_least);
}

void Report::add_bound(const std::string& what, double measured, const char* sign, double limit,
                       bool holds) {
  if (!holds) failed_ = true;
  std::cout << (holds ? "holds: " : "FAILS: ") << what << ": " << number_text(measured) << ", "
            << sign << " " << number_text(limit) << "\n";
  results_["bounds"].push_back(
      {{"what", what}, {"measured", measured}, {sign, limit}, {"holds", holds}});
}

void Report::verify(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("wrong result: " + what);
}

int Report::finish() {
  if (!options_.json.empty()) {
    std::ofstream out(options_.json);
    if (!(out << results_.dump(2) << '\n' << std::flush)) {
      throw std::runtime_error("cannot write " + options_.json);
    }
  }
  return failed_ ? 1 : 0;
}

}  // namespace corvan_bench
