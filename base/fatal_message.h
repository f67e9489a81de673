// The fatal check: ends the process after a programming error.
//
// A host with a crash reporter of its own keeps this header and defines the members itself.

#ifndef BASE_FATAL_MESSAGE_H_
#define BASE_FATAL_MESSAGE_H_

#include <ostream>
#include <sstream>

namespace cvrtc {

// Collects what is streamed into it; when the object ends, writes place and text to standard error
// and aborts the process.
class FatalMessage {
 public:
  // `file` must outlive the object; a `__FILE__` does.
  FatalMessage(const char* file, int line);
  FatalMessage(const FatalMessage&) = delete;
  FatalMessage& operator=(const FatalMessage&) = delete;
  [[noreturn]] ~FatalMessage();

  std::ostream& stream() { return stream_; }

 private:
  std::ostringstream stream_;
};

}  // namespace cvrtc

#endif  // BASE_FATAL_MESSAGE_H_
