// Messages whose texts are all derived from one key, so that a partly written row is noticed.

#ifndef TESTS_THREADS_KEYED_MESSAGES_H_
#define TESTS_THREADS_KEYED_MESSAGES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/store_test.h"

namespace corvan_test {

// The kinds of message. Each has its own body.
constexpr const char* kText = "CV:TxtMsg";
constexpr const char* kEdited = "CV:EditMsg";

std::string body(const std::string& key, const std::string& kind);

// Whether all texts of a message are derived from the same key.
bool whole(const std::string& content, const std::string& kind, const std::string& sender);
bool whole(const Corvan::MessageResponse& m);

NewMessage message(const std::string& key);

int64_t save_into(Corvan::CvDbSingleton& store, const NewMessage& m);

// What the log must contain after a run.
struct Expected {
  std::size_t stored = 0;         // saves that inserted
  std::vector<std::string> seen;  // server uids of saves that were refused
};

}  // namespace corvan_test

#endif  // TESTS_THREADS_KEYED_MESSAGES_H_
