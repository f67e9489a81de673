#include "tools/search/index_work.h"

#include <chrono>
#include <string>

#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Corvan::SearchWork;

constexpr std::chrono::milliseconds kStep{50};

// Calls `step` until it has completed its task or fails. Returns the sums of all calls.
template <typename Step>
SearchWork complete(const std::string& what, int64_t total, const Step& step) {
  Progress progress(what, static_cast<std::uint64_t>(total));
  SearchWork sum;
  while (sum.status == SearchStatus::kOk && !sum.complete) {
    const SearchWork work = step();
    sum.status = work.status;
    sum.complete = work.complete;
    sum.messages += work.messages;
    sum.mended += work.mended;
    progress.show(static_cast<std::uint64_t>(sum.messages));
  }
  return sum;
}

}  // namespace

IndexWork bring_up_to_date(MessageSearch& search) {
  const SearchWork added = complete("messages indexed", search.progress().waiting,
                                    [&search] { return search.catch_up(kStep); });
  IndexWork all{added.status, added.messages, 0};
  // The first sweep may go on where an earlier one ended, and leave out what that one has compared.
  for (int sweeps = 0; sweeps < 2 && all.is_done(); ++sweeps) {
    const SearchWork swept = complete("messages compared", search.progress().indexed,
                                      [&search] { return search.sweep(kStep); });
    all.status = swept.status;
    all.mended += swept.mended;
    if (swept.messages >= search.progress().indexed) break;
  }
  return all;
}

}  // namespace corvan_tool
