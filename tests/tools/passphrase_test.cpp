// Passphrases, for which the program asks on a terminal.

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/encrypted_fixture.h"

namespace corvan_test {
namespace {

class PassphraseTest : public EncryptedTest {
 protected:
  // Runs the program on a terminal of its own, and types an answer after each colon. Returns the
  // exit status and what the terminal showed.
  static std::pair<int, std::string> on_terminal(const Arguments& arguments, const Rows& answers);
};

[[noreturn]] void run_on(const char* terminal, std::vector<char*> argv) {
  setsid();
  const int tty = open(terminal, O_RDWR);
  const bool is_ready = tty >= 0 && ioctl(tty, TIOCSCTTY, 0) == 0 && dup2(tty, 0) == 0 &&
                        dup2(tty, 1) == 1 && dup2(tty, 2) == 2;
  if (is_ready) execv(argv[0], argv.data());
  _exit(127);
}

std::pair<int, std::string> PassphraseTest::on_terminal(const Arguments& arguments,
                                                        const Rows& answers) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) {
    throw std::runtime_error("no pseudo-terminal");
  }
  Arguments words = program();
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const std::string name = ptsname(terminal);
  const pid_t process = fork();
  if (process == 0) run_on(name.c_str(), argv);
  std::string shown;
  std::array<char, 1024> part{};
  std::size_t next = 0;
  ssize_t size = 0;
  while ((size = read(terminal, part.data(), part.size())) > 0) {
    shown.append(part.data(), static_cast<std::size_t>(size));
    if (next == answers.size() || shown.substr(shown.size() - 2) != ": ") continue;
    const std::string answer = answers[next++] + "\r";
    if (::write(terminal, answer.data(), answer.size()) < 0) break;
  }
  close(terminal);
  int status = -1;
  waitpid(process, &status, 0);
  return {WEXITSTATUS(status), shown};
}

TEST_F(PassphraseTest, AsksForAPassphraseWithoutShowingIt) {
  make_plain_store();
  const auto encrypted =
      on_terminal({"encrypt", store(), "--passphrase"}, {"blue horse", "blue hx\x7forse"});
  EXPECT_EQ(encrypted.first, 0) << encrypted.second;
  EXPECT_EQ(encrypted.second.find("blue"), std::string::npos) << encrypted.second;
  EXPECT_NE(encrypted.second.find("Repeat the passphrase: "), std::string::npos);
  expect_no_plain_file("encrypt");

  const auto checked = on_terminal({"check", store(), "--passphrase"}, {"blue horse"});
  EXPECT_EQ(checked.first, 0) << checked.second;
  EXPECT_EQ(checked.second.find("Repeat"), std::string::npos);
  const auto wrong = on_terminal({"check", store(), "--passphrase"}, {"blue hors"});
  EXPECT_EQ(wrong.first, 2);
  EXPECT_NE(wrong.second.find("the key is wrong"), std::string::npos) << wrong.second;

  const auto rekeyed = on_terminal({"rekey", store(), "--passphrase", "--new-passphrase"},
                                   {"blue horse", "red", "red"});
  EXPECT_EQ(rekeyed.first, 0) << rekeyed.second;
  EXPECT_EQ(on_terminal({"decrypt", store(), "--passphrase"}, {"red"}).first, 0);
  EXPECT_EQ(run({"check", store()}).out, "ok\n");
}

TEST_F(PassphraseTest, AsksTwiceIfAnImportCreatesTheStore) {
  write_file(folder.file("log"), line({{"content", "first"}}));
  const Arguments import = {"import", store(), "--user", "me", "--passphrase", folder.file("log")};
  const auto mistyped = on_terminal(import, {"one", "two"});
  EXPECT_EQ(mistyped.first, 2);
  EXPECT_NE(mistyped.second.find("the two passphrases differ"), std::string::npos);
  EXPECT_FALSE(file_exists(store() + "/corvan"));
  EXPECT_EQ(on_terminal(import, {"one", "one"}).first, 0);
  EXPECT_EQ(on_terminal(import, {"one"}).first, 0);
}

TEST_F(PassphraseTest, RefusesPassphrasesThatCannotBeUsed) {
  make_plain_store();
  const Listing before = listing(store());
  const std::vector<std::pair<Rows, std::string>> cases = {
      {{"one", "two"}, "the two passphrases differ"},
      {{"", ""}, "cannot be used"},
      {{"raw:1", "raw:1"}, "cannot be used"},
      {{std::string(2000, 'a')}, "too long"},
      {{"one\x03"}, "cancelled"}};
  for (const auto& [answers, error] : cases) {
    const auto outcome = on_terminal({"encrypt", store(), "--passphrase"}, answers);
    EXPECT_EQ(outcome.first, 2);
    EXPECT_NE(outcome.second.find(error), std::string::npos) << outcome.second;
  }
  EXPECT_TRUE(listing(store()) == before);
}

}  // namespace
}  // namespace corvan_test
