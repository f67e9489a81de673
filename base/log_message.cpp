#include "base/log_message.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <iostream>
#include <locale>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace cvrtc {

namespace {

struct Logger {
  std::atomic<LoggingSeverity> min_severity{LS_WARNING};
  std::mutex mutex;                              // guards `sink`
  std::shared_ptr<const LogMessage::Sink> sink;  // null: standard error
};

// Never destroyed: lines may still be written while static objects are destroyed. Not on the heap:
// its first line may be about running out of memory.
Logger& logger() {
  alignas(Logger) static std::array<std::byte, sizeof(Logger)> place;
  static auto* const instance = new (place.data()) Logger;
  return *instance;
}

}  // namespace

LogMessage::LogMessage(LoggingSeverity severity) : severity_(severity) {
  stream_.imbue(std::locale::classic());
}

LogMessage::~LogMessage() {
  if (!Loggable(severity_)) return;
  try {
    std::shared_ptr<const Sink> sink;
    {
      const std::lock_guard<std::mutex> lock(logger().mutex);
      sink = logger().sink;
    }
    // Called without the lock, so that a sink may log or replace itself.
    if (sink != nullptr) {
      (*sink)(severity_, stream_.str());
    } else {
      std::cerr << stream_.str() + '\n';
    }
  } catch (const std::bad_alloc&) {
    // Out of memory: the line is lost.
  }
}

bool LogMessage::Loggable(LoggingSeverity severity) {
  return severity >= MinSeverity() && severity < LS_NONE;
}

void LogMessage::SetMinSeverity(LoggingSeverity severity) {
  logger().min_severity.store(severity, std::memory_order_relaxed);
}

LoggingSeverity LogMessage::MinSeverity() {
  return logger().min_severity.load(std::memory_order_relaxed);
}

void LogMessage::SetSink(Sink sink) {
  auto installed = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  const std::lock_guard<std::mutex> lock(logger().mutex);
  logger().sink.swap(installed);
}

}  // namespace cvrtc
