#include "addons/search/query.h"

namespace Corvan::search {

Query::Query(std::string_view /*text*/) {}

bool Query::matches(std::string_view /*text*/) const {
  return false;
}

std::vector<SearchRange> Query::ranges(std::string_view /*text*/) const {
  return {};
}

}  // namespace Corvan::search
