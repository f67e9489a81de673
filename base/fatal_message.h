/// @file
/// The fatal check: ends the process after a programming error.
///
/// A host with its own crash reporter keeps this header and defines the members itself.

#ifndef BASE_FATAL_MESSAGE_H_
#define BASE_FATAL_MESSAGE_H_

#include <ostream>
#include <sstream>

namespace cvrtc {

/// Collects the text streamed into it. The destructor writes file, line and text to standard error
/// and aborts the process.
class FatalMessage {
 public:
  /// `file` must outlive the object, as `__FILE__` does.
  FatalMessage(const char* file, int line);
  FatalMessage(const FatalMessage&) = delete;
  FatalMessage& operator=(const FatalMessage&) = delete;
  [[noreturn]] ~FatalMessage();

  /// The stream that takes the text; owned by this object.
  std::ostream& stream() { return stream_; }

 private:
  std::ostringstream stream_;
};

}  // namespace cvrtc

#endif  // BASE_FATAL_MESSAGE_H_
