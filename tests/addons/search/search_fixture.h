// The fixture of the search's tests: an open store in a temporary folder.

#ifndef TESTS_ADDONS_SEARCH_SEARCH_FIXTURE_H_
#define TESTS_ADDONS_SEARCH_SEARCH_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "addons/search/message_search.h"
#include "db/cv_db_singleton.h"
#include "tests/addons/search/truth.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace Corvan {

inline void PrintTo(SearchStatus status, std::ostream* out) {
  *out << static_cast<int32_t>(status) << ", " << to_text(status);
}

}  // namespace Corvan

namespace corvan_test {

// The arguments of a save: a received message, unless changed.
struct Sent {
  std::string text = "hello";
  int64_t time = 100;
  std::string session_id = "room";
  Corvan::SessionType session_type = Corvan::CV_GROUP;
  std::string kind = "CV:TxtMsg";
  std::string sender = "u01";
  int64_t client_uid = 0;  // above 0: an own message
  std::string server_uid = std::string();
};

inline Corvan::CvDbSingleton& the_store() {
  return *Corvan::CvDbSingleton::get_instance();
}
int64_t save(const Sent& message);
// Saves `count` messages with texts of the vocabulary.
void save_many(uint64_t seed, int count);

bool open_store_in(const std::string& folder);

// The files of the index, or all files of a folder, by name, without shared memory.
using FileSet = std::map<std::string, std::string>;
FileSet files_in_folder(const std::string& folder, const std::string& prefix = std::string());
// Replaces all files whose names begin with `prefix`.
void replace_files(const std::string& folder, const std::string& prefix, const FileSet& files);

class SearchTest : public testing::Test {
 protected:
  SearchTest();
  ~SearchTest() override;
  static void SetUpTestSuite() { prefer_memory(); }
  void SetUp() override;

  bool open() const { return open_store_in(folder.path()); }
  static void close() { the_store().close_db(); }
  cvrtc::Pathname path() const { return cvrtc::Pathname(folder.path()); }
  std::string file() const { return folder.file("corvan"); }
  std::string index() const { return folder.file(Corvan::MessageSearch::kFileName); }
  Truth truth() const { return Truth(file()); }
  FileSet index_files() const { return files_in_folder(folder.path(), "corvan-search"); }

  // The ids that a search finds, from the newest to the oldest.
  using Found = std::vector<int64_t>;
  static Found ids(Corvan::MessageSearch& search, const std::string& query,
                   const Corvan::SearchOptions& options = Corvan::SearchOptions());

  // Catches up and sweeps through a new object.
  void build_index() const;

  TemporaryFolder folder;
  LogCapture log{cvrtc::LS_WARNING};
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_SEARCH_FIXTURE_H_
