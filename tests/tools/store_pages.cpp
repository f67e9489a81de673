#include "tests/tools/store_pages.h"

#include <stdexcept>

#include "tests/support/rows.h"

namespace corvan_test {

namespace {

std::vector<std::string> fields(const std::string& row) {
  std::vector<std::string> result(1);
  for (const char c : row) {
    if (c == '|') {
      result.emplace_back();
    } else {
      result.back() += c;
    }
  }
  return result;
}

}  // namespace

StorePages store_pages(const std::string& file, const std::string& table) {
  StorePages pages;
  std::vector<int64_t> ids;
  for (const std::string& id : rows(file, "select rowid from " + table + " order by rowid")) {
    ids.push_back(std::stoll(id));
  }
  // A page's path consists of the places of its parents, so leaves sorted by path are in the order
  // of their rows. The path of an overflow page is its leaf's path and the place of its row there.
  std::size_t next = 0;
  std::vector<int64_t> on_leaf;
  for (const std::string& row :
       rows(file, "select path,pageno,pagetype,ncell from dbstat where name='" + table +
                      "' order by path")) {
    const std::vector<std::string> page = fields(row);
    const std::size_t number = std::stoul(page.at(1));
    if (page.at(2) == "internal") {
      pages.inner.push_back(number);
    } else if (page.at(2) == "leaf") {
      on_leaf.clear();
      for (std::size_t left = std::stoul(page.at(3)); left > 0; --left) {
        on_leaf.push_back(ids.at(next++));
      }
      pages.rows[number] = on_leaf;
    } else {
      const std::size_t plus = page.at(0).find('+');
      const std::size_t slash = page.at(0).rfind('/', plus) + 1;
      const std::size_t place = std::stoul(page.at(0).substr(slash, plus - slash), nullptr, 16);
      pages.rows[number] = {on_leaf.at(place)};
    }
  }
  if (next != ids.size()) throw std::runtime_error("dbstat does not list every row");
  return pages;
}

std::set<int64_t> rows_beside(const StorePages& pages, const std::set<std::size_t>& bad) {
  std::set<int64_t> kept;
  for (const auto& [page, ids] : pages.rows) kept.insert(ids.begin(), ids.end());
  for (const auto& [page, ids] : pages.rows) {
    if (bad.count(page) == 0) continue;
    for (const int64_t id : ids) kept.erase(id);
  }
  return kept;
}

std::string random_bytes(std::mt19937_64& random, std::size_t count) {
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

std::size_t random_below(std::mt19937_64& random, std::size_t end) {
  return static_cast<std::size_t>(random() % end);
}

std::set<std::size_t> random_pages(std::mt19937_64& random, const std::string& content,
                                   std::size_t count) {
  std::set<std::size_t> pages;
  while (pages.size() < count) {
    pages.insert(1 + random_below(random, content.size() / kPageSize));
  }
  return pages;
}

void overwrite(std::string& content, std::size_t page, std::size_t at, const std::string& bytes) {
  content.replace((page - 1) * kPageSize + at, bytes.size(), bytes);
}

void flip_bit(std::string& content, std::size_t page, std::size_t bit) {
  char& byte = content.at((page - 1) * kPageSize + bit / 8);
  byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << (bit % 8)));
}

}  // namespace corvan_test
