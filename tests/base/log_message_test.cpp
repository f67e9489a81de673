#include "base/log_message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>
#include "tests/support/grouping_locale.h"

namespace corvan_test {
namespace {

using Lines = std::vector<std::string>;

// Read before any test can change it.
const cvrtc::LoggingSeverity severity_at_start = cvrtc::LogMessage::MinSeverity();

// Restores the logger's defaults at the end of each test.
class LogMessage : public testing::Test {
 protected:
  ~LogMessage() override {
    cvrtc::LogMessage::SetSink(nullptr);
    cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
  }

  // Collects the lines that the logger passes to its sink from now on: number of the severity,
  // blank, text.
  void collect() {
    cvrtc::LogMessage::SetSink([this](cvrtc::LoggingSeverity severity, const std::string& text) {
      const std::lock_guard<std::mutex> lock(mutex_);
      lines_.push_back(std::to_string(severity) + " " + text);
    });
  }

  std::mutex mutex_;
  Lines lines_;
};

// While it exists, captures what is written to standard error.
class StandardError {
 public:
  StandardError() : previous_(std::cerr.rdbuf(text_.rdbuf())) {}
  StandardError(const StandardError&) = delete;
  StandardError& operator=(const StandardError&) = delete;
  ~StandardError() { std::cerr.rdbuf(previous_); }

  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* previous_;
};

TEST_F(LogMessage, SeveritiesAreNumberedFromZero) {
  EXPECT_EQ(cvrtc::LS_SENSITIVE, 0);
  EXPECT_EQ(cvrtc::LS_VERBOSE, 1);
  EXPECT_EQ(cvrtc::LS_INFO, 2);
  EXPECT_EQ(cvrtc::LS_WARNING, 3);
  EXPECT_EQ(cvrtc::LS_ERROR, 4);
  EXPECT_EQ(cvrtc::LS_NONE, 5);
}

TEST_F(LogMessage, AcceptsWarningsUntilTheHostChangesIt) {
  EXPECT_EQ(severity_at_start, cvrtc::LS_WARNING);
}

TEST_F(LogMessage, AcceptsFromTheMinimumSeverityOn) {
  for (int32_t minimum = cvrtc::LS_SENSITIVE; minimum <= cvrtc::LS_NONE; ++minimum) {
    cvrtc::LogMessage::SetMinSeverity(static_cast<cvrtc::LoggingSeverity>(minimum));
    EXPECT_EQ(cvrtc::LogMessage::MinSeverity(), minimum);
    for (int32_t severity = cvrtc::LS_SENSITIVE; severity < cvrtc::LS_NONE; ++severity) {
      EXPECT_EQ(cvrtc::LogMessage::Loggable(static_cast<cvrtc::LoggingSeverity>(severity)),
                severity >= minimum)
          << severity << " with minimum " << minimum;
    }
  }
}

TEST_F(LogMessage, SeverityNoneAcceptsNoMessage) {
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_SENSITIVE);
  EXPECT_FALSE(cvrtc::LogMessage::Loggable(cvrtc::LS_NONE));
}

TEST_F(LogMessage, HandsTheWholeTextToTheSinkWithoutALineEnd) {
  collect();
  cvrtc::LogMessage(cvrtc::LS_ERROR).stream() << "code;;;" << 26 << ";;;" << -1;
  EXPECT_EQ(lines_, Lines{"4 code;;;26;;;-1"});
}

TEST_F(LogMessage, NothingIsHandedOverBeforeTheMessageEnds) {
  collect();
  {
    cvrtc::LogMessage message(cvrtc::LS_WARNING);
    message.stream() << "first";
    message.stream() << " second";
    EXPECT_EQ(lines_, Lines{});
  }
  EXPECT_EQ(lines_, Lines{"3 first second"});
}

TEST_F(LogMessage, TextBelowTheMinimumSeverityIsDropped) {
  collect();
  cvrtc::LogMessage(cvrtc::LS_INFO).stream() << "dropped";
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "kept";
  EXPECT_EQ(lines_, Lines{"3 kept"});
}

TEST_F(LogMessage, WritesALineToStandardErrorWithoutASink) {
  const StandardError error;
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "one";
  cvrtc::LogMessage(cvrtc::LS_INFO).stream() << "dropped";
  cvrtc::LogMessage(cvrtc::LS_ERROR).stream() << "two";
  EXPECT_EQ(error.text(), "one\ntwo\n");
}

TEST_F(LogMessage, EmptySinkRestoresStandardError) {
  const StandardError error;
  collect();
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "to the sink";
  cvrtc::LogMessage::SetSink(nullptr);
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "to standard error";
  EXPECT_EQ(lines_, Lines{"3 to the sink"});
  EXPECT_EQ(error.text(), "to standard error\n");
}

TEST_F(LogMessage, SinkWithoutMemoryLosesOneLineOnly) {
  bool memory = false;
  cvrtc::LogMessage::SetSink([&](cvrtc::LoggingSeverity, const std::string& text) {
    if (!memory) throw std::bad_alloc();
    lines_.push_back(text);
  });
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "lost";
  memory = true;
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "kept";
  EXPECT_EQ(lines_, Lines{"kept"});
}

TEST_F(LogMessage, NumbersAreNotGroupedUnderAnyGlobalLocale) {
  collect();
  const corvan_test::GroupingLocale grouping;
  cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << 1234567;
  EXPECT_EQ(lines_, Lines{"3 1234567"});
}

TEST_F(LogMessage, LinesOfSeveralThreadsArriveWhole) {
  collect();
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kLines = 50;
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      for (std::size_t n = 0; n < kLines; ++n) {
        cvrtc::LogMessage(cvrtc::LS_WARNING).stream() << "thread " << i << " says";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  std::sort(lines_.begin(), lines_.end());
  Lines expected;
  for (std::size_t i = 0; i < kThreads; ++i) {
    expected.insert(expected.end(), kLines, "3 thread " + std::to_string(i) + " says");
  }
  EXPECT_EQ(lines_, expected);
}

}  // namespace
}  // namespace corvan_test
