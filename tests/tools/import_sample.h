// Helpers for the tests of import.

#ifndef TESTS_TOOLS_IMPORT_SAMPLE_H_
#define TESTS_TOOLS_IMPORT_SAMPLE_H_

#include <filesystem>
#include <string>

#include "tests/tools/program.h"

namespace corvan_test {

class ImportSample : public ToolTest {
 protected:
  // Queries for all messages and all conversations.
  static constexpr const char* kMessages =
      "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
      "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id";
  static constexpr const char* kSessions =
      "select session_id,session_type,session_time,unread_count,mention_count,latest_id "
      "from t_session order by session_id,session_type";

  // Imports the files, with additional arguments.
  Outcome import_files(const Arguments& files, const Arguments& more = {}) {
    Arguments arguments = {"import", store(), "--user", "me"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.insert(arguments.end(), files.begin(), files.end());
    return run(arguments);
  }
  Outcome import_text(const std::string& text, const Arguments& more = {}) {
    return import_files({write("log.jsonl", text)}, more);
  }
  std::string log() const { return folder.file("log.jsonl"); }

  // The counts in the output, without the time and the rate.
  static std::string counts(const Outcome& outcome) {
    return outcome.out.substr(0, outcome.out.find(';'));
  }

  Rows contents() const { return rows("select content from t_message order by id"); }
  bool store_exists() const { return std::filesystem::exists(store()); }
};

// `count` lines with the contents "1", "2" and so on, a second apart.
inline std::string numbered(int count, int first = 1) {
  std::string text;
  for (int i = first; i < first + count; ++i) {
    text += line({{"content", std::to_string(i)},
                  {"sent_time", 1000 * i},
                  {"server_uid", "s" + std::to_string(i)}});
  }
  return text;
}

}  // namespace corvan_test

#endif  // TESTS_TOOLS_IMPORT_SAMPLE_H_
