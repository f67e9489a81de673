#include "addons/statement_cache/statement_cache.h"

#include <cstddef>

#include "addons/statement_cache/cache.h"
#include "base/log_message.h"

namespace Corvan {

bool StatementCache::set_limit(int32_t statements) {
  if (statements < 0 || statements > kLargestLimit) {
    if (cvrtc::LogMessage::Loggable(cvrtc::LS_WARNING)) {
      cvrtc::LogMessage(cvrtc::LS_WARNING).stream()
          << "static bool Corvan::StatementCache::set_limit(int32_t): " << statements
          << " is not from 0 to " << kLargestLimit;
    }
    return false;
  }
  statement_cache::set_limit(static_cast<std::size_t>(statements));
  return true;
}

int32_t StatementCache::limit() {
  return static_cast<int32_t>(statement_cache::limit());
}

void StatementCache::clear() {
  statement_cache::finalize_idle();
}

}  // namespace Corvan
