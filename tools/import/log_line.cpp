#include "tools/import/log_line.h"

#include <array>
#include <bitset>
#include <limits>
#include <nlohmann/json.hpp>

namespace corvan_tool {

namespace {

using Json = nlohmann::json;

enum Field : std::size_t {
  kSessionId,
  kSessionType,
  kObjectName,
  kSender,
  kContent,
  kIsReceive,
  kIsMention,
  kSentStatus,
  kSentTime,
  kClientUid,
  kServerUid,
  kFieldCount,
  kNoField = kFieldCount,
};

constexpr int kNumberOverflow = 406;  // nlohmann's id of the error

struct FieldRule {
  const char* name;
  bool required;
};

constexpr std::array<FieldRule, kFieldCount> kFields = {{
    {"session_id", true},
    {"session_type", true},
    {"object_name", true},
    {"sender", true},
    {"content", true},
    {"is_receive", true},
    {"is_mention", false},
    {"sent_status", false},
    {"sent_time", true},
    {"client_uid", false},
    {"server_uid", false},
}};

Field field_of(const std::string& key) {
  std::size_t index = 0;
  while (index < kFieldCount && key != kFields.at(index).name) ++index;
  return static_cast<Field>(index);
}

// Fills a message while the line is being parsed. Each event returns false to end the parsing, with
// `error` set.
class LineReader : public nlohmann::json_sax<Json> {
 public:
  // `met` holds the keys in `unknown_keys`.
  LineReader(ImportMessage& message, std::vector<std::string>& unknown_keys,
             std::unordered_set<std::string>& met)
      : message_(message), unknown_keys_(unknown_keys), met_(met) {}

  const std::string& error() const { return error_; }

  // The first required field that the line did not have; kNoField when it had all.
  Field missing() const {
    for (std::size_t i = 0; i < kFieldCount; ++i) {
      if (kFields.at(i).required && !seen_[i]) return static_cast<Field>(i);
    }
    return kNoField;
  }

  bool start_object(std::size_t /*elements*/) override {
    if (depth_ == 1 && field_ != kNoField) return wrong_type();
    ++depth_;
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t /*elements*/) override {
    if (depth_ == 0) return not_an_object();
    if (depth_ == 1 && field_ != kNoField) return wrong_type();
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }

  bool key(string_t& name) override {
    if (depth_ > 1) return true;  // inside an unknown key's value
    field_ = field_of(name);
    if (field_ == kNoField) {
      if (met_.insert(name).second) unknown_keys_.push_back(name);
      return true;
    }
    if (seen_[field_]) return fail("given twice");
    seen_.set(field_);
    return true;
  }

  bool null() override { return skipped() || wrong_type(); }

  bool boolean(bool value) override {
    if (skipped()) return true;
    switch (field_) {
      case kIsReceive:
        message_.is_receive = value;
        return true;
      case kIsMention:
        message_.is_mention = value;
        return true;
      default:
        return wrong_type();
    }
  }

  bool number_integer(number_integer_t value) override { return skipped() || whole(value); }

  bool number_unsigned(number_unsigned_t value) override {
    if (skipped()) return true;
    if (value > static_cast<number_unsigned_t>(std::numeric_limits<int64_t>::max())) {
      return is_number() ? fail("out of range") : wrong_type();
    }
    return whole(static_cast<int64_t>(value));
  }

  // A whole number beyond 64 bits arrives here, too.
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    if (skipped()) return true;
    const bool whole_number = text.find_first_of(".eE") == std::string::npos;
    return whole_number && is_number() ? fail("out of range") : wrong_type();
  }

  bool string(string_t& value) override {
    if (skipped()) return true;
    std::string* const target = text_target();
    if (target == nullptr) return wrong_type();
    if (value.find('\0') != std::string::npos) return fail("holds a zero character");
    if (field_ == kSessionId && value.empty()) return fail("must not be empty");
    target->swap(value);
    return true;
  }

  bool binary(binary_t& /*value*/) override { return wrong_type(); }

  bool parse_error(std::size_t position, const std::string& /*last_token*/,
                   const nlohmann::detail::exception& exception) override {
    if (!error_.empty()) return false;
    const bool too_big = exception.id == kNumberOverflow;
    const std::string what =
        (too_big ? "number out of range at byte " : "not valid JSON at byte ") +
        std::to_string(position);
    if (depth_ == 1 && field_ != kNoField) return fail(what);
    error_ = what;
    return false;
  }

 private:
  // Whether a value is part of an unknown key's.
  bool skipped() const { return depth_ > 1 || (depth_ == 1 && field_ == kNoField); }

  bool fail(const std::string& what) {
    error_ = std::string("field \"") + kFields.at(field_).name + "\": " + what;
    return false;
  }

  bool not_an_object() {
    error_ = "not a JSON object";
    return false;
  }

  bool is_number() const {
    return field_ == kSessionType || field_ == kSentStatus || field_ == kSentTime ||
           field_ == kClientUid;
  }

  bool wrong_type() {
    if (depth_ == 0) return not_an_object();
    if (text_target() != nullptr) return fail("must be a text");
    return fail(is_number() ? "must be a whole number" : "must be true or false");
  }

  std::string* text_target() {
    switch (field_) {
      case kSessionId:
        return &message_.session_id;
      case kObjectName:
        return &message_.object_name;
      case kSender:
        return &message_.sender;
      case kContent:
        return &message_.content;
      case kServerUid:
        return &message_.server_uid;
      default:
        return nullptr;
    }
  }

  bool whole(int64_t value) {
    switch (field_) {
      case kSessionType:
        if (value < Corvan::CV_PRIVATE || value > Corvan::CV_SYSTEM) {
          return fail("must be from 1 to 5");
        }
        message_.session_type = static_cast<Corvan::SessionType>(value);
        return true;
      case kSentStatus:
        if (value < 0 || value > 3) return fail("must be from 0 to 3");
        message_.sent_status = static_cast<int32_t>(value);
        return true;
      case kSentTime:
        if (value < 0) return fail("must not be negative");
        message_.sent_time = value;
        return true;
      case kClientUid:
        if (value < 0) return fail("must not be negative");
        message_.client_uid = value;
        return true;
      default:
        return wrong_type();
    }
  }

  ImportMessage& message_;
  std::vector<std::string>& unknown_keys_;
  std::unordered_set<std::string>& met_;
  std::string error_;
  std::bitset<kFieldCount> seen_;
  Field field_ = kNoField;  // of the value that comes next
  int depth_ = 0;
};

}  // namespace

const char* const kImportKeys =
    "Each line is one JSON object with these keys:\n"
    "  session_id    text, not empty: the conversation\n"
    "  session_type  1 private, 2 group, 3 chat room, 4 reception, 5 system\n"
    "  object_name   text: the kind of message, such as \"CV:TxtMsg\"\n"
    "  sender        text: who wrote it\n"
    "  content       text: the body\n"
    "  is_receive    true for a message from someone else, false for one of the user\n"
    "  sent_time     milliseconds since the Unix epoch; 0 for the time of the import\n"
    "and, where they are known:\n"
    "  is_mention    true when the message names the user (default false)\n"
    "  sent_status   0 sent, 1 being sent, 2 failed, 3 seen (default 0)\n"
    "  client_uid    the sending client's number of an own message (default 0: none)\n"
    "  server_uid    text: the server's id of the message (default empty: none)\n"
    "Texts are UTF-8 without zero characters. Other keys are named once and passed over; lines\n"
    "without any text are passed over, too. A line of more than 64 MiB ends the import.\n";

std::optional<std::string> LineParser::parse(std::string_view line, ImportMessage& message) {
  message.is_mention = false;
  message.sent_status = 0;
  message.client_uid = 0;
  message.server_uid.clear();
  LineReader reader(message, unknown_keys_, met_);
  if (!Json::sax_parse(line.begin(), line.end(), &reader)) return reader.error();
  const std::size_t zero = line.find('\0');  // behind the object: the lexer stops at it
  if (zero != std::string_view::npos) return "not valid JSON at byte " + std::to_string(zero + 1);
  const Field missing = reader.missing();
  if (missing == kNoField) return std::nullopt;
  return std::string("field \"") + kFields.at(missing).name + "\": missing";
}

}  // namespace corvan_tool
