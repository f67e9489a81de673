// Runs every C++ snippet of docs/guide.md and docs/search.md in an empty folder and compares its
// output with the lines "// prints:" in the document.

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>

#include "base/log_message.h"
#include "db/cv_db_singleton.h"
#include "tests/docs/snippets.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

using Corvan::CvDbSingleton;

// The output that a snippet documents.
std::string promised(const std::string& snippet) {
  const std::string mark = "// prints: ";
  std::istringstream lines(snippet);
  std::string promise;
  for (std::string line; std::getline(lines, line);) {
    const size_t at = line.find(mark);
    if (at != std::string::npos) promise += line.substr(at + mark.size()) + "\n";
  }
  return promise;
}

// Captures standard output while the object lives.
class Output {
 public:
  Output() : before_(std::cout.rdbuf(text_.rdbuf())) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { std::cout.rdbuf(before_); }
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::streambuf* before_;
};

class Guide : public testing::TestWithParam<Snippet> {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  // The snippet that opens a store starts with a closed one; all others start with an open one.
  void SetUp() override {
    std::filesystem::current_path(folder_.path());
    if (GetParam().text.find("create_directories(\"users/") != std::string::npos) return;
    std::filesystem::create_directories("store");
    ASSERT_TRUE(store()->init_open_db(cvrtc::Pathname("store/"), "", "me"));
  }

  void TearDown() override {
    CvDbSingleton::delete_instance();
    cvrtc::LogMessage::SetSink({});
    cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_WARNING);
    std::filesystem::current_path("/");
  }

  static CvDbSingleton* store() { return CvDbSingleton::get_instance(); }

 private:
  TemporaryFolder folder_;
};

TEST_P(Guide, PrintsTheDocumentedOutput) {
  const std::string promise = promised(GetParam().text);
  ASSERT_NE(promise, "") << testing::PrintToString(GetParam()) << ": a snippet that prints nothing";
  const Output output;
  GetParam().run(store());
  EXPECT_EQ(output.text(), promise) << testing::PrintToString(GetParam());
}

std::string name_of(const testing::TestParamInfo<Snippet>& snippet) {
  return "Line" + std::to_string(snippet.param.line);
}

INSTANTIATE_TEST_SUITE_P(Snippets, Guide, testing::ValuesIn(guide_snippets()), name_of);
#if defined(WITH_SEARCH)
INSTANTIATE_TEST_SUITE_P(SearchSnippets, Guide, testing::ValuesIn(search_snippets()), name_of);
#endif

}  // namespace

}  // namespace corvan_test
