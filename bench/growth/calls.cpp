#include "bench/growth/calls.h"

#include "bench/support/report.h"

namespace corvan_bench {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

CvDbSingleton& store() {
  return *CvDbSingleton::get_instance();
}

void verify(bool holds, const std::string& what) {
  Report::verify(holds, what);
}

void expect_page(const Target& t, int64_t before, bool desc, const std::vector<std::string>& kinds,
                 std::size_t rows) {
  std::vector<MessageResponse> page;
  store().get_history_message_by_object_name(t.session_id, t.session_type, kinds, before, 20, page,
                                             desc);
  verify(page.size() == rows, "a page of " + t.name);
}

void expect_list(const std::vector<SessionType>& kinds, int64_t before, std::size_t rows) {
  std::vector<SessionInfo> page;
  store().get_session_list_by_page(kinds, before, 20, page);
  verify(page.size() == rows, "a page of the list");
}

}  // namespace corvan_bench
