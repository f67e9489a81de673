#include "bench/encryption/figures.h"

#include <algorithm>

#include "bench/encryption/contenders.h"

namespace corvan_bench {

void Figures::set(const std::string& row, const std::string& contender, double value) {
  if (std::find(rows_.begin(), rows_.end(), row) == rows_.end()) rows_.push_back(row);
  values_[{row, contender}] = value;
}

double Figures::at(const std::string& row, const std::string& contender) const {
  return values_.at({row, contender});
}

double Figures::ratio(const std::string& row) const {
  return at(row, kEncrypted) / at(row, kPlain);
}

Report::Cell Figures::cell(const std::string& row, const std::string& contender) const {
  const auto found = values_.find({row, contender});
  return found == values_.end() ? Report::Cell() : Report::Cell(found->second);
}

Report::Cell Figures::ratio_cell(const std::string& row, const Pair& pair) const {
  const Report::Cell plain = cell(row, pair.plain);
  const Report::Cell encrypted = cell(row, pair.encrypted);
  if (plain.is_null() || encrypted.is_null()) return {};
  return encrypted.get<double>() / plain.get<double>();
}

void Figures::print(Report& report, const std::string& title) const {
  print_pairs(report, title, {},
              {{kPlain, kEncrypted, "ratio"}, {kCachedPlain, kCachedEncrypted, "ratio, cached"}});
}

void Figures::print_others(Report& report, const std::string& title) const {
  print_pairs(report, title, {kPassphrase, kInstalledPlain},
              {{kSqlcipherPlain, kSqlcipherEncrypted, "ratio, SQLCipher"}});
}

void Figures::print_pairs(Report& report, const std::string& title,
                          std::vector<std::string> columns, const std::vector<Pair>& pairs) const {
  std::vector<Report::Row> rows;
  for (const std::string& name : rows_) {
    Report::Row row{name};
    for (const std::string& contender : columns) row.push_back(cell(name, contender));
    for (const Pair& pair : pairs) {
      row.push_back(cell(name, pair.plain));
      row.push_back(cell(name, pair.encrypted));
      row.push_back(ratio_cell(name, pair));
    }
    rows.push_back(std::move(row));
  }
  columns.insert(columns.begin(), "");
  for (const Pair& pair : pairs)
    columns.insert(columns.end(), {pair.plain, pair.encrypted, pair.ratio});
  report.table(title, columns, rows);
}

}  // namespace corvan_bench
