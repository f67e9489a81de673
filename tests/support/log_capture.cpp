#include "tests/support/log_capture.h"

#include <utility>

#include "tests/support/uncounted.h"

namespace corvan_test {

using cvrtc::LogMessage;

LogCapture::LogCapture(cvrtc::LoggingSeverity min_severity) {
  LogMessage::SetMinSeverity(min_severity);
  LogMessage::SetSink([this](cvrtc::LoggingSeverity severity, const std::string& text) {
    const Uncounted uncounted;
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back(std::to_string(severity) + " " + text);
  });
}

LogCapture::~LogCapture() {
  LogMessage::SetSink(nullptr);
  LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
}

std::vector<std::string> LogCapture::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(lines_, {});
}

}  // namespace corvan_test
