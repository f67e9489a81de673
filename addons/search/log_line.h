// The library's lines in the log.

#ifndef ADDONS_SEARCH_LOG_LINE_H_
#define ADDONS_SEARCH_LOG_LINE_H_

#include <new>

#include "base/log_message.h"

namespace Corvan::search {

// Writes one error line. If memory runs out, the line is lost.
template <typename... Fields>
void log_line(const Fields&... fields) {
  if (!cvrtc::LogMessage::Loggable(cvrtc::LS_ERROR)) return;
  try {
    cvrtc::LogMessage message(cvrtc::LS_ERROR);
    message.stream() << "MessageSearch: ";
    (message.stream() << ... << fields);
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_LOG_LINE_H_
