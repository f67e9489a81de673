#include <algorithm>
#include <array>
#include <cctype>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>

#include "tests/fuzz/targets.h"
#include "tools/import/log_line.h"

namespace corvan_test {

namespace {

using Json = nlohmann::json;
using corvan_tool::ImportMessage;
using corvan_tool::LineParser;

const std::set<std::string>& known_keys() {
  static const std::set<std::string> keys = {
      "session_id", "session_type", "object_name", "sender",     "content",   "is_receive",
      "is_mention", "sent_status",  "sent_time",   "client_uid", "server_uid"};
  return keys;
}

// A message that an earlier line has filled.
ImportMessage used_message() {
  ImportMessage m;
  m.session_id = m.object_name = m.sender = m.content = m.server_uid = "of the line before";
  m.session_type = Corvan::CV_SYSTEM;
  m.is_receive = m.is_mention = true;
  m.sent_status = 3;
  m.sent_time = m.client_uid = 77;
  return m;
}

auto fields(const ImportMessage& m) {
  return std::tie(m.session_id, m.session_type, m.object_name, m.sender, m.content, m.is_receive,
                  m.is_mention, m.sent_status, m.sent_time, m.client_uid, m.server_uid);
}

// ---- The expected message, found without the parser --------------------------------------------

// Nothing if the line is not valid JSON, contains a zero byte, or gives a known key twice.
std::optional<Json> whole_document(std::string_view line) {
  if (line.find('\0') != std::string_view::npos) return std::nullopt;
  std::map<std::string, int> given;
  const auto count = [&given](int depth, Json::parse_event_t event, const Json& parsed) {
    if (event == Json::parse_event_t::key && depth == 1) ++given[parsed.get<std::string>()];
    return true;
  };
  Json document = Json::parse(line.begin(), line.end(), count, false);
  if (!document.is_object()) return std::nullopt;
  for (const auto& [key, times] : given) {
    if (times > 1 && known_keys().count(key) > 0) return std::nullopt;
  }
  return document;
}

bool read_text(const Json& object, const char* key, std::string& text) {
  if (!object.contains(key)) return false;
  const Json& value = object[key];
  if (!value.is_string()) return false;
  text = value.get<std::string>();
  return text.find('\0') == std::string::npos;
}

bool read_flag(const Json& object, const char* key, bool& flag) {
  if (!object.contains(key) || !object[key].is_boolean()) return false;
  flag = object[key].get<bool>();
  return true;
}

bool read_number(const Json& object, const char* key, int64_t least, int64_t most,
                 int64_t& number) {
  if (!object.contains(key) || !object[key].is_number_integer()) return false;
  const Json& value = object[key];
  constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  if (value.is_number_unsigned() && value.get<uint64_t>() > kMost) return false;
  number = value.get<int64_t>();
  return number >= least && number <= most;
}

// The message of a good line; nothing for a bad line.
std::optional<ImportMessage> expected_message(std::string_view line) {
  constexpr int64_t kMost = std::numeric_limits<int64_t>::max();
  const std::optional<Json> document = whole_document(line);
  if (!document) return std::nullopt;
  const Json& object = *document;
  ImportMessage m;
  int64_t kind = 0;
  int64_t status = 0;
  const bool required =
      read_text(object, "session_id", m.session_id) && !m.session_id.empty() &&
      read_number(object, "session_type", 1, 5, kind) &&
      read_text(object, "object_name", m.object_name) && read_text(object, "sender", m.sender) &&
      read_text(object, "content", m.content) && read_flag(object, "is_receive", m.is_receive) &&
      read_number(object, "sent_time", 0, kMost, m.sent_time);
  if (!required) return std::nullopt;
  const auto absent = [&object](const char* key) { return !object.contains(key); };
  const bool optional =
      (absent("is_mention") || read_flag(object, "is_mention", m.is_mention)) &&
      (absent("sent_status") || read_number(object, "sent_status", 0, 3, status)) &&
      (absent("client_uid") || read_number(object, "client_uid", 0, kMost, m.client_uid)) &&
      (absent("server_uid") || read_text(object, "server_uid", m.server_uid));
  if (!optional) return std::nullopt;
  m.session_type = static_cast<Corvan::SessionType>(kind);
  m.sent_status = static_cast<int32_t>(status);
  return m;
}

std::string written(const ImportMessage& m) {
  return Json{{"session_id", m.session_id},   {"session_type", int32_t{m.session_type}},
              {"object_name", m.object_name}, {"sender", m.sender},
              {"content", m.content},         {"is_receive", m.is_receive},
              {"is_mention", m.is_mention},   {"sent_status", m.sent_status},
              {"sent_time", m.sent_time},     {"client_uid", m.client_uid},
              {"server_uid", m.server_uid}}
      .dump();
}

// ---- Error texts --------------------------------------------------------------------------------

bool starts_with(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

bool names_a_field(const std::string& error) {
  return std::any_of(known_keys().begin(), known_keys().end(), [&error](const std::string& key) {
    const std::string beginning = "field \"" + key + "\": ";
    return starts_with(error, beginning) && error.size() > beginning.size();
  });
}

// Whether the place in the error, if there is one, is at most one byte after the line.
bool place_is_in_line(const std::string& error, std::size_t size) {
  const std::string before = " at byte ";
  const std::size_t at = error.find(before);
  if (at == std::string::npos) return true;
  const std::string digits = error.substr(at + before.size());
  if (digits.empty() || digits.size() > 9) return false;
  if (digits.find_first_not_of("0123456789") != std::string::npos) return false;
  return std::stoul(digits) <= size + 1;
}

std::string check_error(const std::string& error, std::size_t size) {
  const bool one_line = std::all_of(error.begin(), error.end(), [](char c) {
    return std::isprint(static_cast<unsigned char>(c)) != 0;
  });
  if (!one_line || error.size() > 100) return "The error is not one short line: " + error;
  if (!place_is_in_line(error, size)) return "The error's place is outside the line: " + error;
  if (names_a_field(error) || error == "not a JSON object" ||
      starts_with(error, "not valid JSON at byte ") ||
      starts_with(error, "number out of range at byte ")) {
    return "";
  }
  return "The error names neither a field nor a place: " + error;
}

// Unknown keys must be unique, must not be known keys, and cannot be longer than the line.
std::string check_unknown_keys(const LineParser& parser, std::size_t size) {
  std::set<std::string> met;
  std::size_t bytes = 0;
  for (const std::string& key : parser.unknown_keys()) {
    if (known_keys().count(key) > 0) return "A known key is called unknown: " + key;
    if (!met.insert(key).second) return "An unknown key is listed twice: " + key;
    bytes += key.size();
  }
  return bytes <= size ? "" : "The unknown keys are longer than the line.";
}

std::string check_accepted(const ImportMessage& m, const std::optional<ImportMessage>& expected,
                           std::size_t size) {
  if (!expected) return "A bad line is accepted.";
  if (fields(m) != fields(*expected)) return "The message differs from the line.";
  const std::size_t bytes = m.session_id.size() + m.object_name.size() + m.sender.size() +
                            m.content.size() + m.server_uid.size();
  if (bytes > size) return "The texts are longer than the line.";
  ImportMessage again;
  const auto error = LineParser().parse(written(m), again);
  if (error) return "A message written as a line is rejected: " + *error;
  return fields(again) == fields(m) ? "" : "A message written as a line is read differently.";
}

}  // namespace

std::string check_import_line(const uint8_t* data, std::size_t size) {
  const std::string_view line(reinterpret_cast<const char*>(data), size);
  LineParser parser;
  ImportMessage message;
  const auto error = parser.parse(line, message);
  ImportMessage used = used_message();
  if (parser.parse(line, used) != error) return "The result depends on the line before.";
  if (!error && fields(used) != fields(message)) return "A message has values of the line before.";

  const std::string keys = check_unknown_keys(parser, size);
  if (!keys.empty()) return keys;
  const auto expected = expected_message(line);
  if (!error) return check_accepted(message, expected, size);
  if (expected) return "A good line is rejected: " + *error;
  return check_error(*error, size);
}

}  // namespace corvan_test
