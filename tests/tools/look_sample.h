// A store with three conversations, for the tests of commands that only read.

#ifndef TESTS_TOOLS_LOOK_SAMPLE_H_
#define TESTS_TOOLS_LOOK_SAMPLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

// 2023-11-14 22:13:20 UTC
inline constexpr int64_t kSampleTime = 1700000000000;

class LookTest : public ToolTest {
 protected:
  // A group with an unread mention, a private conversation with an own message that is being sent,
  // and a chat room.
  void import_sample() {
    import(line({{"content", "first"},
                 { "server_uid",
                   "s1" }}) +
           line({{"content", "你好"},
                 {"sender", "李明"},
                 {"is_mention", true},
                 {"sent_time", kSampleTime + 1000},
                 { "server_uid",
                   "s2" }}) +
           line({{"content", "pic"},
                 {"object_name", "it's"},
                 {"sent_time", kSampleTime + 2000},
                 { "server_uid",
                   "s3" }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 {"sent_time", kSampleTime + 3000},
                 { "server_uid",
                   "s4" }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 {"sender", "me"},
                 {"is_receive", false},
                 {"content", "on its way"},
                 {"sent_status", 1},
                 {"client_uid", 42},
                 { "sent_time",
                   kSampleTime + 4000 }}) +
           line({{"session_id", "hall"}, {"session_type", 3}, {"content", "welcome"}, {
                   "sent_time",
                   kSampleTime - 1000
                 }}));
  }

  // The commands that show the store, each as text and as JSON, with arguments for the sample.
  std::vector<Arguments> commands(const std::string& folder_of_store) const {
    std::vector<Arguments> all;
    for (const Arguments& tail : std::vector<Arguments>{{"list"},
                                                        {"history", "room", "--type", "group"},
                                                        {"unread"},
                                                        {"show", "1"},
                                                        {"check"}}) {
      Arguments arguments = tail;
      arguments.insert(arguments.begin() + 1, folder_of_store);
      all.push_back(arguments);
      arguments.emplace_back("--json");
      all.push_back(arguments);
    }
    return all;
  }

  // Expects each command to fail with this error and to write nothing to standard output.
  void expect_refused(const std::string& error, const std::vector<Arguments>& of) {
    for (const Arguments& arguments : of) {
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2) << arguments[0];
      EXPECT_EQ(outcome.err, "corvan: " + file() + ": " + error + "\n") << arguments[0];
      EXPECT_EQ(outcome.out, "") << arguments[0];
    }
  }

  Outcome history(const Arguments& more) {
    Arguments arguments = {"history", store(), "room", "--type", "group", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
  std::vector<int> ids(const Arguments& more) {
    const Outcome outcome = history(more);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<int> result;
    for (const Json& message : Json::parse(outcome.out)) result.push_back(message["msg_id"]);
    return result;
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_LOOK_SAMPLE_H_
