#include "addons/search/tokenizer.h"

namespace Corvan::search {

int register_tokenizer(sqlite3* /*connection*/) {
  return 1;
}

std::string tokenizer_version() {
  return "0";
}

}  // namespace Corvan::search
