// The commands encrypt, decrypt and rekey.

#include <filesystem>
#include <string>

#include "tests/tools/encrypted_fixture.h"

namespace corvan_test {
namespace {

class ConversionCommandsTest : public EncryptedTest {
 protected:
  Json converted(const std::string& key, Arguments arguments) {
    arguments.emplace_back("--json");
    const Outcome outcome = run_with(key, arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    return outcome.out.empty() ? Json() : Json::parse(outcome.out);
  }

  std::string listed(const std::string& key) { return run_with(key, {"list", store()}).out; }
};

TEST_F(ConversionCommandsTest, EncryptAndDecryptKeepEveryRow) {
  make_plain_store();
  const std::string before = listed("");
  const Json encrypted = converted(key(), {"encrypt", store()});
  EXPECT_EQ(keys(encrypted), (Rows{"changed", "file_bytes", "seconds"}));
  EXPECT_EQ(encrypted["changed"], true);
  EXPECT_EQ(encrypted["file_bytes"], read_file(file()).size());
  expect_no_plain_file("encrypt");
  EXPECT_EQ(listed(key()), before);
  EXPECT_EQ(listed(""), "");
  EXPECT_EQ(converted(key(), {"decrypt", store()})["changed"], true);
  EXPECT_EQ(listed(""), before);
}

TEST_F(ConversionCommandsTest, RekeyReplacesTheKey) {
  make_store();
  const std::string before = listed(key());
  EXPECT_EQ(converted(key(), {"rekey", store(), "--new-key-file", other()})["changed"], true);
  EXPECT_EQ(listed(key()), "");
  EXPECT_EQ(listed(other()), before);
  expect_no_plain_file("rekey");
}

TEST_F(ConversionCommandsTest, ReportAStoreThatIsAlreadyConverted) {
  make_store();
  EXPECT_EQ(converted(key(), {"encrypt", store()})["changed"], false);
  EXPECT_EQ(converted(other(), {"rekey", store(), "--new-key-file", key()})["changed"], false);
  EXPECT_EQ(converted(key(), {"decrypt", store()})["changed"], true);
  EXPECT_EQ(converted("", {"decrypt", store()})["changed"], false);
  EXPECT_NE(run({"decrypt", store()}).out.find("was already decrypted"), std::string::npos);
}

TEST_F(ConversionCommandsTest, ReportInOneLine) {
  make_plain_store();
  EXPECT_EQ(run_with(key(), {"encrypt", store()}).out.find(file() + ": encrypted, "), 0U);
  EXPECT_EQ(run_with(key(), {"rekey", store(), "--new-key-file", other()})
                .out.find(file() + ": encrypted with the new key, "),
            0U);
  EXPECT_EQ(run_with(other(), {"decrypt", store()}).out.find(file() + ": decrypted, "), 0U);
}

TEST_F(ConversionCommandsTest, RefuseAStoreThatIsInUse) {
  make_store();
  {
    const WriteAhead client(file(), "begin;select * from t_message");
    const Outcome outcome = run_with(key(), {"rekey", store(), "--new-key-file", other()});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(outcome.err.find("in use by another process"), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(run_with(key(), {"check", store()}).out, "ok\n");
}

TEST_F(ConversionCommandsTest, RefuseWhatIsNoStore) {
  std::filesystem::create_directory(store());
  expect_refused({"encrypt", store()}, key(), "no store here");
  expect_refused({"decrypt", store()}, key(), "no store here");
  expect_refused({"rekey", store(), "--new-key-file", other()}, key(), "no store here");
  make_fifo(file());
  expect_refused({"encrypt", store()}, key(), "corvan: not a file");
}

TEST_F(ConversionCommandsTest, RefuseADamagedStore) {
  make_plain_store();
  std::string content = read_file(file());
  content.replace(content.size() - 4096, 4096, 4096, 'x');
  write_file(file(), content);
  const Outcome outcome = run_with(key(), {"encrypt", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("damaged"), std::string::npos) << outcome.err;
  EXPECT_NE(outcome.err.find("no message was changed"), std::string::npos) << outcome.err;
  EXPECT_EQ(listing(store()).size(), 1U);
  EXPECT_EQ(run({"salvage", store(), new_store()}).err, "");
}

TEST_F(ConversionCommandsTest, SayWhichKeyIsMissing) {
  make_plain_store();
  expect_refused({"encrypt", store()}, "", "name the new key with --key-file");
  expect_refused({"rekey", store(), "--new-key-file", other()}, "", "name the present key");
  expect_refused({"rekey", store()}, key(), "name the new key with --new-key-file");
  expect_refused({"rekey", store(), "--new-key-file", other()}, key(), "use 'corvan encrypt'");
  EXPECT_NE(run_with("-", {"rekey", store(), "--new-key-file", "-"}, std::string(64, '1'))
                .err.find("was read for the other key"),
            std::string::npos);
}

}  // namespace
}  // namespace corvan_test
