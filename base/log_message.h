// The streaming logger. The store writes every line through it and asks Loggable() first.
//
// A host with a logger of its own keeps this header and defines the members itself; this definition
// is then left out at link time.

#ifndef BASE_LOG_MESSAGE_H_
#define BASE_LOG_MESSAGE_H_

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

namespace cvrtc {

enum LoggingSeverity : int32_t {
  LS_SENSITIVE = 0,  // may hold what users wrote
  LS_VERBOSE = 1,
  LS_INFO = 2,
  LS_WARNING = 3,
  LS_ERROR = 4,
  LS_NONE = 5,  // as a minimum: nothing is written; no message has it
};

// One log line: what is streamed into it is handed over when the object ends, whole unless there is
// no memory for it: then it is cut short or lost.
//
// All static members may be called from any thread.
class LogMessage {
 public:
  // Receives each accepted line without a line end. It may be called from several threads at once
  // and must not throw, std::bad_alloc excepted, which loses the line.
  using Sink = std::function<void(LoggingSeverity severity, const std::string& text)>;

  explicit LogMessage(LoggingSeverity severity);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  // Hands the text to the sink, or writes it and a line end to standard error when none is
  // installed. A text whose severity is not accepted is dropped.
  ~LogMessage();

  // Writes numbers in plain decimal, whatever the global locale is.
  std::ostream& stream() { return stream_; }

  // Whether a message of this severity is written. Callers ask before they build a text.
  static bool Loggable(LoggingSeverity severity);

  // Messages below `severity` are not accepted from now on. LS_WARNING until the host sets another.
  static void SetMinSeverity(LoggingSeverity severity);
  static LoggingSeverity MinSeverity();

  // Sends accepted lines to `sink` from now on; an empty one brings standard error back.
  static void SetSink(Sink sink);

 private:
  const LoggingSeverity severity_;
  std::ostringstream stream_;
};

}  // namespace cvrtc

#endif  // BASE_LOG_MESSAGE_H_
