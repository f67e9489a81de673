// The syntax of queries.

#ifndef ADDONS_SEARCH_QUERY_PARSER_H_
#define ADDONS_SEARCH_QUERY_PARSER_H_

#include <string_view>
#include <vector>

namespace Corvan::search {

// One term as the user wrote it.
struct QueryPart {
  std::string_view text;   // without quotation marks and the last asterisk
  bool is_prefix = false;  // an asterisk follows
};

// Splits a query at white space and quotation marks. A part may have nothing to search for.
std::vector<QueryPart> parse_query(std::string_view query);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_QUERY_PARSER_H_
