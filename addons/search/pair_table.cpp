#include "addons/search/pair_table.h"

#include <cstring>
#include <string_view>

#include "addons/search/hashing.h"
#include "addons/search/index_file.h"

namespace Corvan::search {

namespace {

template <typename Element>
std::string_view bytes_of(const std::vector<Element>& list) {
  return {reinterpret_cast<const char*>(list.data()), list.size() * sizeof(Element)};
}

template <typename Element>
std::vector<Element> list_of(std::string_view bytes) {
  std::vector<Element> list(bytes.size() / sizeof(Element));
  if (!list.empty()) std::memcpy(list.data(), bytes.data(), list.size() * sizeof(Element));
  return list;
}

// Rows that have changed places do not agree with their hashes, either.
int64_t row_hash(int64_t number, const PairLists& lists) {
  uint64_t hash = mixed(static_cast<uint64_t>(number), static_cast<uint64_t>(lists.least));
  hash = mixed(hash, hash_of(bytes_of(lists.words)));
  return static_cast<int64_t>(mixed(hash, hash_of(bytes_of(lists.exceptions))));
}

}  // namespace

const CommonPairs& PairTable::of(int64_t number) {
  for (const auto& [table, pairs] : pairs_) {
    if (table == number) return pairs;
  }
  Statement row(index_, "select least,words,exceptions,hash from pair where number=?");
  if (!row.bind(number).row())
    fail_index(SQLITE_CORRUPT, {index_.file(), ": the pairs of words are damaged"});
  const PairLists lists = {row.integer(0), list_of<HashedShare>(row.blob(1)),
                           list_of<uint64_t>(row.blob(2))};
  if (row.integer(3) != row_hash(number, lists))
    fail_index(SQLITE_CORRUPT, {index_.file(), ": the pairs of words are damaged"});
  return pairs_.emplace_back(number, lists).second;
}

void PairTable::add(int64_t number, const PairLists& lists) {
  Statement(index_, "insert into pair values(?,?,?,?,?)")
      .bind(number, lists.least, Blob{bytes_of(lists.words)}, Blob{bytes_of(lists.exceptions)},
            row_hash(number, lists))
      .run();
}

void PairTable::remove(int64_t number) {
  Statement(index_, "delete from pair where number=?").bind(number).run();
  forget();
}

}  // namespace Corvan::search
