#include "addons/search/hashing.h"

#include <cstring>

namespace Corvan::search {

uint64_t hash_of(std::string_view bytes) {
  uint64_t hash = bytes.size();
  uint64_t word = 0;
  for (; bytes.size() >= sizeof word; bytes.remove_prefix(sizeof word)) {
    std::memcpy(&word, bytes.data(), sizeof word);
    hash = mixed(hash, word);
  }
  for (const char c : bytes) hash = mixed(hash, static_cast<unsigned char>(c));
  return hash;
}

}  // namespace Corvan::search
