// One line of a conversation log.

#ifndef TOOLS_IMPORT_LOG_LINE_H_
#define TOOLS_IMPORT_LOG_LINE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_tool {

// The message in a line.
struct ImportMessage {
  std::string session_id;
  Corvan::SessionType session_type = Corvan::CV_PRIVATE;
  std::string object_name;
  std::string sender;
  std::string content;
  bool is_receive = false;
  bool is_mention = false;
  int32_t sent_status = 0;
  int64_t sent_time = 0;
  int64_t client_uid = 0;
  std::string server_uid;
};

// Describes the keys of a line, for help texts and documents.
extern const char* const kImportKeys;

// Parses lines of JSON that hold one message each.
class LineParser {
 public:
  // Fills `message` and returns nothing. If the line is bad, returns the error as one line of text,
  // which names the field if there is one; the contents of `message` are then unspecified.
  std::optional<std::string> parse(std::string_view line, ImportMessage& message);

  // The unknown keys of all lines so far, each once, in the order in which they first occurred.
  // Their values are ignored.
  const std::vector<std::string>& unknown_keys() const { return unknown_keys_; }

 private:
  std::vector<std::string> unknown_keys_;
  std::unordered_set<std::string> met_;  // the same keys
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_LOG_LINE_H_
