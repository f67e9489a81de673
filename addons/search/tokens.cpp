#include "addons/search/tokens.h"

namespace Corvan::search {

std::string_view word_token(std::string_view word) {
  if (word.size() <= kMostTokenBytes) return word;
  std::size_t size = kMostTokenBytes;
  while ((static_cast<unsigned char>(word[size]) & 0xC0U) == 0x80) --size;
  return word.substr(0, size);
}

}  // namespace Corvan::search
