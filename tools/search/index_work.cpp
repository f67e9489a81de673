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

SearchWork sweep_to_the_end(MessageSearch& search, int64_t messages) {
  return complete("messages compared", messages, [&search] { return search.sweep(kStep); });
}

}  // namespace

IndexWork bring_up_to_date(MessageSearch& search) {
  const SearchWork added = complete("messages indexed", search.progress().waiting,
                                    [&search] { return search.catch_up(kStep); });
  IndexWork all{added.status, added.messages, 0};
  // The first sweep may go on where an earlier one ended, and leave out what that one has compared.
  const int64_t messages = search.progress().indexed;
  int64_t compared = 0;
  for (int sweeps = 0; sweeps < 2 && compared < messages && all.is_done(); ++sweeps) {
    const SearchWork swept = sweep_to_the_end(search, messages);
    all.status = swept.status;
    all.mended += swept.mended;
    compared = swept.messages;
  }
  return all;
}

}  // namespace corvan_tool
