/// @file
/// The streaming logger. The store writes every line through it and asks Loggable() first.
///
/// A host with its own logger keeps this header and defines the members itself; the definitions of
/// this library are then left out at link time.

#ifndef BASE_LOG_MESSAGE_H_
#define BASE_LOG_MESSAGE_H_

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

namespace cvrtc {

/// How important a log line is, in ascending order.
enum LoggingSeverity : int32_t {
  LS_SENSITIVE = 0,  ///< may contain users' texts
  LS_VERBOSE = 1,
  LS_INFO = 2,
  LS_WARNING = 3,
  LS_ERROR = 4,
  LS_NONE = 5,  ///< as a minimum: nothing is written; no message has this severity
};

/// One log line. The destructor hands over the text streamed into it. If memory runs out, the line
/// is cut short or lost.
///
/// All static members may be called from any thread.
class LogMessage {
 public:
  /// Receives each accepted line, without a line end. It may be called from several threads at
  /// once. It must not throw anything but std::bad_alloc, which loses the line.
  using Sink = std::function<void(LoggingSeverity severity, const std::string& text)>;

  /// Begins a line of this severity.
  explicit LogMessage(LoggingSeverity severity);
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  /// Hands the text to the sink, or writes it and a line end to standard error if no sink is
  /// installed. Drops the text if its severity is not accepted.
  ~LogMessage();

  /// The stream that takes the text. It writes numbers in plain decimal, whatever the global locale
  /// is.
  std::ostream& stream() { return stream_; }

  /// Whether a message of this severity is written. Callers ask before they build a text.
  static bool Loggable(LoggingSeverity severity);

  /// From now on, messages below `severity` are not accepted. LS_WARNING until the host changes it.
  static void SetMinSeverity(LoggingSeverity severity);
  /// The severity below which messages are not accepted.
  static LoggingSeverity MinSeverity();

  /// From now on, sends accepted lines to `sink`, or to standard error if `sink` is empty.
  static void SetSink(Sink sink);

 private:
  const LoggingSeverity severity_;
  std::ostringstream stream_;
};

}  // namespace cvrtc

#endif  // BASE_LOG_MESSAGE_H_
