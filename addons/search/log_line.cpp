#include "addons/search/log_line.h"

#include <new>

#include "base/log_message.h"

namespace Corvan::search {

void log_line(std::string_view text, std::string_view end) noexcept {
  if (!cvrtc::LogMessage::Loggable(cvrtc::LS_ERROR)) return;
  try {
    cvrtc::LogMessage message(cvrtc::LS_ERROR);
    message.stream() << "MessageSearch: " << text << end;
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace Corvan::search
