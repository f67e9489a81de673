// The options that name a key.

#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/encrypted_fixture.h"

namespace corvan_test {
namespace {

class KeyOptionsTest : public EncryptedTest {};

TEST_F(KeyOptionsTest, ReadsKeysWithWhiteSpaceAroundThem) {
  make_store();
  std::string digits;
  for (int i = 0; i < 32; ++i) digits += "b7";
  for (const std::string& text : {digits, digits + "\n", "\t " + digits + "\r\n\n"}) {
    EXPECT_EQ(run_with(write("text", text), {"check", store()}).status, 0);
    EXPECT_EQ(run_with("-", {"check", store()}, text).status, 0);
  }
  for (char& digit : digits) digit = static_cast<char>(std::toupper(digit));
  EXPECT_EQ(run_with(write("text", digits), {"check", store()}).status, 0);
}

TEST_F(KeyOptionsTest, RefusesWhatIsNoKey) {
  make_store();
  const std::string digits(64, 'b');
  const std::string name = folder.file("text");
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "0 hexadecimal digits instead of 64"},
      {std::string(63, 'b'), "63 hexadecimal digits instead of 64"},
      {digits + "b", "65 hexadecimal digits instead of 64"},
      {digits.substr(1) + "g", "64 hexadecimal digits and nothing else"},
      {"0x" + digits, "64 hexadecimal digits and nothing else"},
      {digits + "\n" + digits, "64 hexadecimal digits and nothing else"},
      {std::string(64, '\0'), "64 hexadecimal digits and nothing else"},
      {std::string(5000, 'b'), "longer than 64 hexadecimal digits"}};
  for (const auto& [text, error] : cases) {
    write("text", text);
    expect_refused({"check", store()}, name, name + ": not a key: ");
    expect_refused({"check", store()}, name, error);
    EXPECT_EQ(read_err().find("bb"), std::string::npos) << read_err();
  }
  expect_refused({"check", store()}, folder.file("missing"), "missing: No such file");
  expect_refused({"check", store()}, folder.path(), "Is a directory");
  EXPECT_EQ(run_with("-", {"check", store()}, "b").err,
            "corvan: standard input: not a key: 1 hexadecimal digits instead of 64\n");
}

TEST_F(KeyOptionsTest, RefusesStandardInputForTheKeyAndTheLog) {
  make_store();
  EXPECT_NE(run_with("-", {"import", store(), "--user", "me", "-"}, std::string(64, 'b'))
                .err.find("standard input: was read for the key"),
            std::string::npos);
  EXPECT_NE(run_with("-", {"restore", "-", new_store()}, std::string(64, 'b'))
                .err.find("standard input: was read for the key"),
            std::string::npos);
}

TEST_F(KeyOptionsTest, RefusesTwoKinds) {
  make_store();
  expect_refused({"list", store(), "--passphrase"}, key(), "--passphrase");
  expect_refused({"--passphrase", "list", store()}, key(), "--passphrase");
}

}  // namespace
}  // namespace corvan_test
