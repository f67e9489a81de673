#include "tests/addons/search/search_fixture.h"

#include <filesystem>

#include "tests/addons/search/vocabulary.h"
#include "tests/support/clock.h"

namespace corvan_test {

namespace fs = std::filesystem;

namespace {

bool begins_with(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool is_shared_memory(const std::string& name) {
  return name.size() > 4 && name.compare(name.size() - 4, 4, "-shm") == 0;
}

}  // namespace

int64_t save(const Sent& m) {
  const bool own = m.client_uid > 0;
  return the_store().save_message(m.session_id, m.session_type, m.kind, own ? "me" : m.sender,
                                  m.text, !own, 0, 0, false, m.time, m.client_uid, m.server_uid,
                                  false, false, !own);
}

void save_many(uint64_t seed, int count) {
  Vocabulary vocabulary(seed);
  ASSERT_TRUE(the_store().start_transaction());
  for (int i = 0; i < count; ++i) {
    Sent message{vocabulary.text(), static_cast<int64_t>(1000 + vocabulary.below(500))};
    message.session_id = "room" + std::to_string(vocabulary.below(3));
    ASSERT_GT(save(message), 0);
  }
  // Each save commits on its own if the caller has begun no transaction.
  ASSERT_TRUE(the_store().commit_transaction());
}

bool open_store_in(const std::string& folder) {
  return the_store().init_open_db(cvrtc::Pathname(folder), "", "me");
}

FileSet files_in_folder(const std::string& folder, const std::string& prefix) {
  FileSet files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_regular_file() || !begins_with(name, prefix) || is_shared_memory(name)) continue;
    files[name] = read_file(entry.path().string());
  }
  return files;
}

void replace_files(const std::string& folder, const std::string& prefix, const FileSet& files) {
  std::vector<fs::path> old;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (begins_with(entry.path().filename().string(), prefix)) old.push_back(entry.path());
  }
  for (const fs::path& path : old) fs::remove_all(path);
  for (const auto& [name, content] : files) {
    if (begins_with(name, prefix)) write_file(folder + name, content);
  }
}

SearchTest::SearchTest() = default;

SearchTest::~SearchTest() {
  Corvan::CvDbSingleton::delete_instance();
}

void SearchTest::SetUp() {
  set_clock(1000000);
  ASSERT_TRUE(open());
}

SearchTest::Found SearchTest::ids(Corvan::MessageSearch& search, const std::string& query,
                                  const Corvan::SearchOptions& options) {
  Found ids;
  for (const auto& hit : search.find(query, options).hits) ids.push_back(hit.id);
  return ids;
}

void SearchTest::build_index() const {
  Corvan::MessageSearch search(path());
  ASSERT_EQ(mend_all(search), "");
}

}  // namespace corvan_test
