// Divides the messages of a conversation into pages.

#ifndef TOOLS_EXPORT_HTML_PAGE_PLAN_H_
#define TOOLS_EXPORT_HTML_PAGE_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/export/selection.h"

namespace corvan_tool {

// The order of messages on pages, in SQL.
constexpr const char* kMessageOrder = " order by sent_time,id";

// A month that has messages.
struct PlannedMonth {
  std::string name;
  std::size_t page = 1;  // on which the month begins
  int64_t messages = 0;
};

// A page holds as many whole months as fit. A month that does not fit on one page is split.
struct PagePlan {
  std::vector<PlannedMonth> months;
  std::vector<int64_t> pages;  // the number of messages on each
  int64_t messages = 0;
  int64_t first_time = 0;
  int64_t last_time = 0;
};

// Reads the times of the messages. `from` is the part "from t_message where ..." of a statement.
// Throws ToolError if the store cannot be read.
PagePlan plan_pages(const ExportSource& source, const std::string& from);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_PAGE_PLAN_H_
