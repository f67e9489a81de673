/// @file
/// The library's clock.

#ifndef BASE_TIMESTAMP_H_
#define BASE_TIMESTAMP_H_

#include <cstdint>

namespace Corvan {

/// Milliseconds since the Unix epoch. Never earlier than the result of the call before, even if the
/// system's clock is set back. May be called from any thread.
int64_t Timestamp();

}  // namespace Corvan

#endif  // BASE_TIMESTAMP_H_
