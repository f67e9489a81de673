#include "tools/export/html/page_plan.h"

#include <utility>

#include "tools/export/html/times.h"

namespace corvan_tool {

namespace {

constexpr int64_t kMessagesOnAPage = 2000;

void count_message(PagePlan& plan, int64_t time) {
  std::string name = month_name(time);
  if (plan.months.empty() || plan.months.back().name != name) {
    plan.months.push_back({std::move(name), 1, 0});
  }
  ++plan.months.back().messages;
  if (plan.messages == 0) plan.first_time = time;
  plan.last_time = time;
  ++plan.messages;
}

void add_month_to_pages(PagePlan& plan, PlannedMonth& month) {
  if (plan.pages.back() > 0 && plan.pages.back() + month.messages > kMessagesOnAPage) {
    plan.pages.push_back(0);
  }
  month.page = plan.pages.size();
  int64_t rest = month.messages;
  while (rest > kMessagesOnAPage) {
    plan.pages.back() = kMessagesOnAPage;
    plan.pages.push_back(0);
    rest -= kMessagesOnAPage;
  }
  plan.pages.back() += rest;
}

}  // namespace

PagePlan plan_pages(const ExportSource& source, const std::string& from) {
  PagePlan plan;
  source.store().each_row("select sent_time " + from + kMessageOrder,
                          [&plan](const Row& row) { count_message(plan, row.int64(0)); });
  plan.pages.push_back(0);
  for (PlannedMonth& month : plan.months) add_month_to_pages(plan, month);
  return plan;
}

}  // namespace corvan_tool
