#include "addons/search/pair_table.h"

#include <string_view>

#include "addons/search/hashing.h"

namespace Corvan::search {

namespace {

// Rows that have changed places do not agree with their hashes, either.
int64_t row_hash(int64_t number, int64_t least, std::string_view words,
                 std::string_view exceptions) {
  const uint64_t numbers = mixed(static_cast<uint64_t>(number), static_cast<uint64_t>(least));
  return static_cast<int64_t>(mixed(mixed(numbers, hash_of(words)), hash_of(exceptions)));
}

}  // namespace

const CommonPairs& PairTable::of(int64_t number) {
  const auto known = pairs_.find(number);
  if (known != pairs_.end()) return known->second;
  Statement row(index_, "select least,words,exceptions,hash from pair where number=?");
  if (!row.bind(number).row()) index_.fail(SQLITE_CORRUPT);
  const int64_t least = row.integer(0);
  const std::string_view words = row.text(1);
  const std::string_view exceptions = row.text(2);
  if (row.integer(3) != row_hash(number, least, words, exceptions)) index_.fail(SQLITE_CORRUPT);
  return pairs_.emplace(number, CommonPairs(least, words, exceptions)).first->second;
}

void PairTable::add(int64_t number, const PairLists& lists) {
  Statement(index_, "insert into pair values(?,?,?,?,?)")
      .bind(number, lists.least, std::string_view(lists.words), std::string_view(lists.exceptions),
            row_hash(number, lists.least, lists.words, lists.exceptions))
      .run();
}

void PairTable::remove(int64_t number) {
  Statement(index_, "delete from pair where number=?").bind(number).run();
  pairs_.erase(number);
}

}  // namespace Corvan::search
