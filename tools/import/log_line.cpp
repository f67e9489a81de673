#include "tools/import/log_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <limits>
#include <nlohmann/json.hpp>
#include <variant>

#include "tools/import/json_line.h"

namespace corvan_tool {

namespace {

using Json = nlohmann::json;

constexpr int64_t kLargest = std::numeric_limits<int64_t>::max();
constexpr int kNumberOverflow = 406;  // nlohmann's id of the error

// What the value of a field must be, and the member of ImportMessage that receives it.
struct Text {
  std::string ImportMessage::*member;
  bool may_be_empty = true;
};
struct Flag {
  bool ImportMessage::*member;
};
struct Number {
  int64_t least;
  int64_t largest;
  void (*set)(ImportMessage& message, int64_t value);
};

struct Field {
  const char* name;
  bool is_required;
  std::variant<Text, Flag, Number> value;
};

void set_session_type(ImportMessage& message, int64_t value) {
  message.session_type = static_cast<Corvan::SessionType>(value);
}
void set_sent_status(ImportMessage& message, int64_t value) {
  message.sent_status = static_cast<int32_t>(value);
}
void set_sent_time(ImportMessage& message, int64_t value) {
  message.sent_time = value;
}
void set_client_uid(ImportMessage& message, int64_t value) {
  message.client_uid = value;
}

constexpr std::array<Field, 11> kFields = {{
    {"session_id", true, Text{&ImportMessage::session_id, false}},
    {"session_type", true, Number{Corvan::CV_PRIVATE, Corvan::CV_SYSTEM, set_session_type}},
    {"object_name", true, Text{&ImportMessage::object_name}},
    {"sender", true, Text{&ImportMessage::sender}},
    {"content", true, Text{&ImportMessage::content}},
    {"is_receive", true, Flag{&ImportMessage::is_receive}},
    {"is_mention", false, Flag{&ImportMessage::is_mention}},
    {"sent_status", false, Number{0, 3, set_sent_status}},
    {"sent_time", true, Number{0, kLargest, set_sent_time}},
    {"client_uid", false, Number{0, kLargest, set_client_uid}},
    {"server_uid", false, Text{&ImportMessage::server_uid}},
}};

// Null if no field has this name.
const Field* find_field(const std::string& name) {
  const auto* const found = std::find_if(
      kFields.begin(), kFields.end(), [&name](const Field& field) { return name == field.name; });
  return found == kFields.end() ? nullptr : found;
}

[[noreturn]] void fail_type(const Field& field) {
  const char* expected = "must be a text";
  if (std::holds_alternative<Flag>(field.value)) expected = "must be true or false";
  if (std::holds_alternative<Number>(field.value)) expected = "must be a whole number";
  fail_field(field.name, expected);
}

void set_text(ImportMessage& message, const Field& field, std::string& value) {
  const Text* const text = std::get_if<Text>(&field.value);
  if (text == nullptr) fail_type(field);
  if (value.find('\0') != std::string::npos) fail_field(field.name, "contains a zero character");
  if (value.empty() && !text->may_be_empty) fail_field(field.name, "must not be empty");
  (message.*text->member).swap(value);
}

void set_flag(ImportMessage& message, const Field& field, bool value) {
  const Flag* const flag = std::get_if<Flag>(&field.value);
  if (flag == nullptr) fail_type(field);
  message.*flag->member = value;
}

void set_number(ImportMessage& message, const Field& field, int64_t value) {
  const Number* const number = std::get_if<Number>(&field.value);
  if (number == nullptr) fail_type(field);
  if (value < number->least || value > number->largest) {
    fail_field(field.name,
               number->largest == kLargest
                   ? "must not be negative"
                   : fmt::format("must be from {} to {}", number->least, number->largest));
  }
  number->set(message, value);
}

// A whole number that does not fit into 64 bits with a sign.
[[noreturn]] void fail_large_number(const Field& field) {
  if (!std::holds_alternative<Number>(field.value)) fail_type(field);
  fail_field(field.name, "out of range");
}

// Fills a message while the JSON library parses the line. Throws LineError.
class LineReader : public nlohmann::json_sax<Json> {
 public:
  // `met` holds the keys in `unknown_keys`.
  LineReader(ImportMessage& message, std::vector<std::string>& unknown_keys,
             std::unordered_set<std::string>& met)
      : message_(message), unknown_keys_(unknown_keys), met_(met) {}

  void require_all_fields() const {
    for (std::size_t i = 0; i < kFields.size(); ++i) {
      if (kFields.at(i).is_required && !seen_[i]) fail_missing(kFields.at(i).name);
    }
  }

  bool start_object(std::size_t /*elements*/) override {
    if (is_wanted()) fail_type(*field_);
    ++depth_;
    return true;
  }
  bool start_array(std::size_t /*elements*/) override {
    if (is_wanted_value()) fail_type(*field_);
    ++depth_;
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }

  bool key(string_t& name) override {
    if (depth_ > 1) return true;
    field_ = find_field(name);
    if (field_ == nullptr) {
      if (met_.insert(name).second) unknown_keys_.push_back(name);
      return true;
    }
    const auto place = static_cast<std::size_t>(field_ - kFields.data());
    if (seen_[place]) fail_given_twice(name);
    seen_.set(place);
    return true;
  }

  bool null() override {
    if (is_wanted_value()) fail_type(*field_);
    return true;
  }
  bool boolean(bool value) override {
    if (is_wanted_value()) set_flag(message_, *field_, value);
    return true;
  }
  bool number_integer(number_integer_t value) override {
    if (is_wanted_value()) set_number(message_, *field_, value);
    return true;
  }
  bool number_unsigned(number_unsigned_t value) override {
    if (!is_wanted_value()) return true;
    if (value > static_cast<number_unsigned_t>(kLargest)) fail_large_number(*field_);
    set_number(message_, *field_, static_cast<int64_t>(value));
    return true;
  }
  // The JSON library also passes whole numbers of more than 64 bits to this function.
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    if (!is_wanted_value()) return true;
    if (text.find_first_of(".eE") != std::string::npos) fail_type(*field_);
    fail_large_number(*field_);
  }
  bool string(string_t& value) override {
    if (is_wanted_value()) set_text(message_, *field_, value);
    return true;
  }
  bool binary(binary_t& /*value*/) override { return true; }  // JSON has no binary values

  bool parse_error(std::size_t position, const std::string& /*last_token*/,
                   const nlohmann::detail::exception& exception) override {
    const std::string what = exception.id == kNumberOverflow
                                 ? fmt::format("number out of range at byte {}", position)
                                 : not_json_text(position);
    if (is_wanted()) fail_field(field_->name, what);
    throw LineError(what);
  }

 private:
  // Whether the parser is at the value of a field. The values of unknown keys are skipped, with all
  // that they contain.
  bool is_wanted() const { return depth_ == 1 && field_ != nullptr; }

  // The same for a value that is not an object. Throws LineError if it is the whole line.
  bool is_wanted_value() const {
    if (depth_ == 0) fail_not_an_object();
    return is_wanted();
  }

  ImportMessage& message_;
  std::vector<std::string>& unknown_keys_;
  std::unordered_set<std::string>& met_;
  std::bitset<kFields.size()> seen_;
  const Field* field_ = nullptr;  // of the last key; null if it is unknown
  int depth_ = 0;
};

void read_line(std::string_view line, LineReader& reader) {
  Json::sax_parse(line.begin(), line.end(), &reader);
  require_no_zero_byte(line);  // after the object: the parser has checked what comes before
  reader.require_all_fields();
}

}  // namespace

const char* const kImportKeys =
    "Each line is one JSON object with these keys:\n"
    "  session_id    text, not empty: the conversation\n"
    "  session_type  1 private, 2 group, 3 chat room, 4 reception, 5 system\n"
    "  object_name   text: the kind of message, such as \"CV:TxtMsg\"\n"
    "  sender        text: who wrote the message\n"
    "  content       text: the body\n"
    "  is_receive    true for a message from someone else, false for one of the user\n"
    "  sent_time     milliseconds since the Unix epoch; 0 for the time of the import\n"
    "These keys are optional:\n"
    "  is_mention    true if the message mentions the user (default false)\n"
    "  sent_status   0 sent, 1 being sent, 2 failed, 3 seen (default 0)\n"
    "  client_uid    the number that the sending client gave the user's message\n"
    "                (default 0: none)\n"
    "  server_uid    text: the server's id of the message (default empty: none)\n"
    "Texts are UTF-8 without zero characters. Unknown keys are ignored; each is reported once.\n"
    "Blank lines are skipped. A line of more than 64 MiB ends the import.\n";

std::optional<std::string> LineParser::parse(std::string_view line, ImportMessage& message) {
  message.is_mention = false;
  message.sent_status = 0;
  message.client_uid = 0;
  message.server_uid.clear();
  LineReader reader(message, unknown_keys_, met_);
  try {
    read_line(line, reader);
  } catch (const LineError& error) {
    return error.what();
  }
  return std::nullopt;
}

}  // namespace corvan_tool
