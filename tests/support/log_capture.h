#ifndef TESTS_SUPPORT_LOG_CAPTURE_H_
#define TESTS_SUPPORT_LOG_CAPTURE_H_

#include <mutex>
#include <string>
#include <vector>

#include "base/log_message.h"

namespace corvan_test {

// Collects log lines at or above a severity while it exists. A line is the number of its severity,
// a blank and the text, such as "3 void f(): text". The destructor restores the logger's defaults.
class LogCapture {
 public:
  explicit LogCapture(cvrtc::LoggingSeverity min_severity = cvrtc::LS_SENSITIVE);
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The lines since the last call.
  std::vector<std::string> take();

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_LOG_CAPTURE_H_
