// Runs the fuzzers' seeds without a fuzzer.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/fuzz/targets.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using Check = std::string (*)(const uint8_t* data, std::size_t size);

void check_all(const std::string& folder, Check check) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(CORVAN_CORPUS_DIR + folder)) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  EXPECT_GE(files.size(), 20U);
  for (const std::string& file : files) {
    const std::string input = read_file(file);
    EXPECT_EQ(check(reinterpret_cast<const uint8_t*>(input.data()), input.size()), "") << file;
  }
}

TEST(FuzzCorpusTest, Operations) {
  check_all("operations", check_operations);
}

#if defined(CORVAN_TOOLS)
TEST(FuzzCorpusTest, ImportLines) {
  check_all("import", check_import_line);
}
#endif

#if defined(CORVAN_SEARCH)
TEST(FuzzCorpusTest, SearchQueries) {
  check_all("search_query", check_search_query);
}

TEST(FuzzCorpusTest, SearchTokenizer) {
  check_all("search_tokenizer", check_search_tokenizer);
}
#endif

}  // namespace
}  // namespace corvan_test
