// Hashes that are stored in the index.

#ifndef ADDONS_SEARCH_HASHING_H_
#define ADDONS_SEARCH_HASHING_H_

#include <cstdint>
#include <string_view>

namespace Corvan::search {

// Adds a value to a hash.
inline uint64_t mixed(uint64_t hash, uint64_t value) {
  hash = (hash ^ value) * 0x9e3779b97f4a7c15;
  return hash ^ (hash >> 29U);
}

uint64_t hash_of(std::string_view bytes);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_HASHING_H_
