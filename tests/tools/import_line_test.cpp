#include "tools/import/log_line.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

using corvan_tool::ImportMessage;
using corvan_tool::LineParser;

constexpr const char* kRequired =
    R"("session_id":"room","session_type":2,"object_name":"CV:TxtMsg","sender":"u01",)"
    R"("content":"hi","is_receive":true,"sent_time":5)";

std::string with(const std::string& members) {
  return "{" + std::string(kRequired) + "," + members + "}";
}

// An object with the required members; the value of one of them is replaced.
std::string replaced(const std::string& key, const std::string& value) {
  static const std::vector<std::vector<std::string>> members = {
      {"session_id", "\"room\""}, {"session_type", "2"}, {"object_name", "\"CV:TxtMsg\""},
      {"sender", "\"u01\""},      {"content", "\"hi\""}, {"is_receive", "true"},
      {"sent_time", "5"},
  };
  std::string text;
  for (const auto& member : members) {
    if (!text.empty()) text += ",";
    text += "\"" + member[0] + "\":" + (member[0] == key ? value : member[1]);
  }
  return "{" + text + "}";
}

class ImportLineTest : public testing::Test {
 protected:
  // Returns the error; empty for a good line.
  std::string error(const std::string& text) {
    message = ImportMessage();
    return parser.parse(text, message).value_or("");
  }

  LineParser parser;
  ImportMessage message;
};

TEST_F(ImportLineTest, ReadsEveryKey) {
  EXPECT_EQ(error(R"({"server_uid":"s-9","client_uid":77,"sent_time":1700000000123,)"
                  R"("sent_status":3,"is_mention":true,"is_receive":true,"content":"c",)"
                  R"("sender":"u01","object_name":"CV:ImgMsg","session_type":4,)"
                  R"("session_id":"desk"})"),
            "");
  EXPECT_EQ(message.session_id, "desk");
  EXPECT_EQ(message.session_type, Corvan::CV_RECEPTION);
  EXPECT_EQ(message.object_name, "CV:ImgMsg");
  EXPECT_EQ(message.sender, "u01");
  EXPECT_EQ(message.content, "c");
  EXPECT_TRUE(message.is_receive);
  EXPECT_TRUE(message.is_mention);
  EXPECT_EQ(message.sent_status, 3);
  EXPECT_EQ(message.sent_time, 1700000000123);
  EXPECT_EQ(message.client_uid, 77);
  EXPECT_EQ(message.server_uid, "s-9");
}

TEST_F(ImportLineTest, ResetsOptionalKeysToTheirDefaults) {
  ASSERT_EQ(
      error(with(R"("is_mention":true,"sent_status":2,"client_uid":8,"server_uid":"uid-of-old")")),
      "");
  ASSERT_EQ(parser.parse("{" + std::string(kRequired) + "}", message), std::nullopt);
  EXPECT_FALSE(message.is_mention);
  EXPECT_EQ(message.sent_status, 0);
  EXPECT_EQ(message.client_uid, 0);
  EXPECT_EQ(message.server_uid, "");
  EXPECT_EQ(message.session_id, "room");
  EXPECT_EQ(message.sent_time, 5);
}

TEST_F(ImportLineTest, DecodesTexts) {
  EXPECT_EQ(error(replaced("content", R"("a\"\\\n\u4e2d\ud83d\ude00 中")")), "");
  EXPECT_EQ(message.content, "a\"\\\n中😀 中");
  EXPECT_EQ(error(replaced("content", R"("")")), "");
  EXPECT_EQ(message.content, "");
  EXPECT_EQ(error(replaced("sender", R"("")")), "");
  EXPECT_EQ(error(replaced("object_name", R"("")")), "");
}

TEST_F(ImportLineTest, AllowsWhiteSpaceAroundTheObject) {
  EXPECT_EQ(error(" \t{" + std::string(kRequired) + "} \t\r"), "");
}

TEST_F(ImportLineTest, WrongTypesNameTheField) {
  const std::vector<std::string> texts = {"session_id", "object_name", "sender", "content"};
  for (const std::string& key : texts) {
    for (const char* value :
         {"1", "-1", "1.5", "true", "null", "[]", "{}", "[\"x\"]", "99999999999999999999"}) {
      EXPECT_EQ(error(replaced(key, value)), "field \"" + key + "\": must be a text") << value;
    }
  }
  for (const char* value : {"1", "-1", "1.5", "\"x\"", "null", "[]", "{}"}) {
    EXPECT_EQ(error(with(std::string("\"server_uid\":") + value)) == "", *value == '"') << value;
  }
  for (const char* value :
       {"1", "0", "-1", "0.0", "\"true\"", "null", "[true]", "{}", "18446744073709551615"}) {
    EXPECT_EQ(error(replaced("is_receive", value)), "field \"is_receive\": must be true or false");
    EXPECT_EQ(error(with(std::string("\"is_mention\":") + value)),
              "field \"is_mention\": must be true or false");
  }
  for (const char* value : {"true", "\"1\"", "1.0", "1e3", "null", "[1]", "{}"}) {
    const std::string whole = ": must be a whole number";
    EXPECT_EQ(error(replaced("session_type", value)), "field \"session_type\"" + whole) << value;
    EXPECT_EQ(error(replaced("sent_time", value)), "field \"sent_time\"" + whole) << value;
    EXPECT_EQ(error(with(std::string("\"sent_status\":") + value)),
              "field \"sent_status\"" + whole);
    EXPECT_EQ(error(with(std::string("\"client_uid\":") + value)), "field \"client_uid\"" + whole);
  }
}

TEST_F(ImportLineTest, ChecksRanges) {
  for (const char* value : {"1", "2", "3", "4", "5"}) {
    EXPECT_EQ(error(replaced("session_type", value)), "");
    EXPECT_EQ(std::to_string(message.session_type), value);
  }
  for (const char* value : {"0", "6", "-1", "4294967297"}) {
    EXPECT_EQ(error(replaced("session_type", value)),
              "field \"session_type\": must be from 1 to 5");
  }
  for (const char* value : {"0", "1", "2", "3"}) {
    EXPECT_EQ(error(with(std::string("\"sent_status\":") + value)), "");
    EXPECT_EQ(std::to_string(message.sent_status), value);
  }
  for (const char* value : {"4", "-1", "4294967296"}) {
    EXPECT_EQ(error(with(std::string("\"sent_status\":") + value)),
              "field \"sent_status\": must be from 0 to 3");
  }
  EXPECT_EQ(error(replaced("sent_time", "-1")), "field \"sent_time\": must not be negative");
  EXPECT_EQ(error(with("\"client_uid\":-1")), "field \"client_uid\": must not be negative");
  EXPECT_EQ(error(replaced("session_id", "\"\"")), "field \"session_id\": must not be empty");
}

TEST_F(ImportLineTest, AcceptsNumbersUpTo63Bits) {
  EXPECT_EQ(error(replaced("sent_time", "9223372036854775807")), "");
  EXPECT_EQ(message.sent_time, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(error(with("\"client_uid\":9223372036854775807")), "");
  EXPECT_EQ(message.client_uid, std::numeric_limits<int64_t>::max());
  for (const char* value : {"9223372036854775808", "18446744073709551616",
                            "99999999999999999999999999", "-9223372036854775809"}) {
    EXPECT_EQ(error(replaced("sent_time", value)), "field \"sent_time\": out of range") << value;
    EXPECT_EQ(error(replaced("session_type", value)), "field \"session_type\": out of range");
  }
  const std::string overflow = error(replaced("sent_time", "1e999"));
  EXPECT_EQ(overflow.find("field \"sent_time\": number out of range at byte "), 0U) << overflow;
}

TEST_F(ImportLineTest, NamesMissingKeys) {
  for (const char* key : {"session_id", "session_type", "object_name", "sender", "content",
                          "is_receive", "sent_time"}) {
    std::string text = replaced("", "");
    const std::string name = "\"" + std::string(key) + "\"";
    text.replace(text.find(name), name.size(), "\"other\"");
    EXPECT_EQ(error(text), "field " + name + ": missing");
  }
  EXPECT_EQ(error("{}"), "field \"session_id\": missing");
}

TEST_F(ImportLineTest, NamesKeyGivenTwice) {
  for (const char* key : {"session_id", "session_type", "object_name", "sender", "content",
                          "is_receive", "sent_time"}) {
    EXPECT_EQ(error(with("\"" + std::string(key) + "\":0")),
              "field \"" + std::string(key) + "\": given twice");
  }
  EXPECT_EQ(error(with(R"("server_uid":"a","server_uid":"a")")),
            "field \"server_uid\": given twice");
}

TEST_F(ImportLineTest, RejectsZeroCharacters) {
  for (const char* key : {"session_id", "object_name", "sender", "content"}) {
    const std::string expected = "field \"" + std::string(key) + "\": contains a zero character";
    EXPECT_EQ(error(replaced(key, R"("a\u0000b")")), expected);
    EXPECT_EQ(error(replaced(key, R"("\u0000")")), expected);
  }
  EXPECT_EQ(error(with(R"("server_uid":"\u0000")")),
            "field \"server_uid\": contains a zero character");
  // A raw zero byte is not JSON.
  const std::string raw = error(replaced("content", std::string("\"a\0b\"", 5)));
  EXPECT_EQ(raw.find("field \"content\": not valid JSON at byte "), 0U) << raw;
}

TEST_F(ImportLineTest, RejectsIllFormedText) {
  for (const char* value :
       {"\"\xff\"", "\"\xc3\"", "\"\xc0\x80\"", "\"\xed\xa0\x80\"", "\"\xf4\x90\x80\x80\"",
        "\"a\nb\"", "\"\\x\"", "\"\\ud800\"", "\"\\udc00\"", "\"\\u12\""}) {
    const std::string text = error(replaced("content", value));
    EXPECT_EQ(text.find("field \"content\": not valid JSON at byte "), 0U) << value << text;
    EXPECT_EQ(text.find('\n'), std::string::npos);
  }
}

TEST_F(ImportLineTest, RejectsLinesThatAreNotObjects) {
  for (const char* text : {"[]", "[{}]", "1", "-1", "1.5", "\"text\"", "true", "null"}) {
    EXPECT_EQ(error(text), "not a JSON object") << text;
  }
}

TEST_F(ImportLineTest, RejectsBrokenJson) {
  const std::string good = "{" + std::string(kRequired) + "}";
  for (const std::string& text :
       {std::string(), std::string("hello"), std::string("{"), good.substr(0, good.size() - 1),
        good + "x", good + good, good + ",", std::string("{'session_id':'a'}"), "/* a */" + good,
        std::string("{\"session_id\"}")}) {
    const std::string found = error(text);
    EXPECT_NE(found.find("not valid JSON at byte "), std::string::npos) << text;
  }
  EXPECT_EQ(error(good + " x").find("not valid JSON at byte "), 0U) << "in no field";
  // A zero byte does not end the line: the bytes after it are not ignored.
  const std::string zero(1, '\0');
  const std::string place = "not valid JSON at byte " + std::to_string(good.size() + 1);
  EXPECT_EQ(error(good + zero), place);
  EXPECT_EQ(error(good + zero + good), place);
  // No part of a line is accepted as a line.
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_NE(error(good.substr(0, size)), "") << size;
  }
}

TEST_F(ImportLineTest, IgnoresUnknownKeysAndNotesThemOnce) {
  EXPECT_EQ(error(with(R"("zeta":1,"alpha":null,"zeta":"\u0000")")), "");
  EXPECT_EQ(error(with(R"("alpha":1.5,"Session_id":true)")), "");
  EXPECT_EQ(parser.unknown_keys(), (std::vector<std::string>{"zeta", "alpha", "Session_id"}));
}

TEST_F(ImportLineTest, ValuesOfUnknownKeysMayBeNested) {
  EXPECT_EQ(error(with(R"("more":{"session_id":5,"x":[1,{"content":null,"y":"z"},[]]},)"
                       R"("server_uid":"after")")),
            "");
  EXPECT_EQ(message.session_id, "room");
  EXPECT_EQ(message.content, "hi");
  EXPECT_EQ(message.server_uid, "after");
  EXPECT_EQ(parser.unknown_keys(), std::vector<std::string>{"more"});
  // The value of a known key must not be nested.
  EXPECT_EQ(error(replaced("content", R"({"text":"hi"})")), "field \"content\": must be a text");
}

TEST_F(ImportLineTest, DeepNestingDoesNoHarm) {
  const std::string open(100000, '[');
  const std::string close(100000, ']');
  EXPECT_EQ(error(with("\"more\":" + open + close)), "");
  EXPECT_NE(error(with("\"more\":" + open)), "");
}

TEST_F(ImportLineTest, ReadsGoodLineAfterBadOne) {
  EXPECT_NE(error(R"({"more":{"x":[)"), "");
  EXPECT_EQ(error(with(R"("server_uid":"u")")), "");
  EXPECT_EQ(message.server_uid, "u");
}

}  // namespace
