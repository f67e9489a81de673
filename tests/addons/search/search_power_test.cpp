// Power losses: of the whole disk, and of the store's files and the index's at different moments,
// as if the two were on different disks. CORVAN_SEARCH_SEED is the seed, CORVAN_SEARCH_IMAGES the
// number of images that are tried.

#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/faults/disk_images.h"
#include "tests/faults/disk_record.h"
#include "tests/support/bounds.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using std::chrono::microseconds;

bool is_index(const std::string& name) {
  return name.rfind("corvan-search", 0) == 0;
}

// The index's file is created without SQLite's file system, so the record lacks this event.
DiskRecord with_creations(const DiskRecord& record) {
  DiskRecord result{record.start, {}};
  std::set<std::string> files;
  for (const auto& file : record.start) files.insert(file.first);
  for (const DiskEvent& event : record.events) {
    const bool is_new = files.insert(event.file).second;
    if (is_new && event.kind != DiskEvent::kCreate) {
      result.events.push_back({DiskEvent::kCreate, event.file, 0, ""});
    }
    if (event.kind == DiskEvent::kDelete) files.erase(event.file);
    result.events.push_back(event);
  }
  return result;
}

// What a client does; opens and closes the store and the index.
void play_session(const std::string& folder, uint64_t seed) {
  Vocabulary random(seed);
  ASSERT_TRUE(open_store_in(folder));
  MessageSearch search{cvrtc::Pathname(folder)};
  for (int i = 0; i < 12; ++i) {
    for (std::size_t j = random.below(25); j > 0; --j) save({random.text(), 100});
    if (random.one_in(2)) search.catch_up(random.one_in(2) ? kPlenty : microseconds(1));
    const auto id = static_cast<int64_t>(1 + random.below(60));
    if (random.one_in(3)) {
      the_store().set_message_content(id, random.text(), "");
    } else {
      the_store().delete_message({id});
    }
    if (random.one_in(2)) search.changed(id);
    if (random.one_in(3)) search.sweep(random.one_in(2) ? kPlenty : microseconds(1));
  }
  search.catch_up(kPlenty);
  search.sweep(kPlenty);
}

class SearchPower : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  // Records two sessions.
  void record(uint64_t seed) {
    const TemporaryFolder folder;
    DiskRecorder recorder{DiskImage()};
    for (const uint64_t session : {seed, seed + 1}) {
      play_session(folder.path(), session);
      Corvan::CvDbSingleton::delete_instance();
    }
    recorder.end();
    record_ = with_creations(recorder.record());
  }

  // The disk after this many events, and the fates that are tried.
  Disk disk_after(std::size_t events) const {
    Disk disk(record_);
    while (disk.events() < events) disk.advance();
    return disk;
  }
  std::vector<Fate> fates(const Disk& disk) { return disk.fates({2, 1}, random_); }
  DiskImage any_image(std::size_t events) {
    const Disk disk = disk_after(events);
    const std::vector<Fate> all = fates(disk);
    return disk.image(all[below(all.size())]);
  }

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  // Some messages more, whose ids other messages may have had before the loss.
  std::string look(const std::string& folder) {
    if (!open_store_in(folder)) return "the store does not open";
    const std::string file = folder + "corvan";
    if (rows(file, "select count(*) from sqlite_master where name='t_message'").front() == "0") {
      return "";
    }
    MessageSearch search{cvrtc::Pathname(folder)};
    const Truth before(file);
    std::string wrong = compare(search, before, few_queries(), before.ids());
    save_many(below(1000), 20);
    const Truth after(file);
    if (wrong.empty()) wrong = compare(search, after, few_queries(), before.ids());
    if (wrong.empty()) wrong = mend_all(search);
    if (wrong.empty()) wrong = compare(search, after, few_queries());
    return wrong;
  }

  std::string open_image(const DiskImage& image) {
    const TemporaryFolder folder;
    write_folder(folder.path(), image);
    std::string wrong = look(folder.path());
    Corvan::CvDbSingleton::delete_instance();
    return wrong;
  }

  DiskRecord record_;
  std::mt19937_64 random_;
  LogCapture log{cvrtc::LS_NONE};
};

TEST_F(SearchPower, LossOfTheWholeDisk) {
  const uint64_t seed = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t count = bound("CORVAN_SEARCH_IMAGES", 40, 5000);
  random_.seed(seed);
  record(seed);
  for (uint64_t tried = 0; tried < count;) {
    const std::size_t events = below(record_.events.size() + 1);
    const Disk disk = disk_after(events);
    for (const Fate& fate : fates(disk)) {
      ASSERT_EQ(open_image(disk.image(fate)), "")
          << "CORVAN_SEARCH_SEED=" << seed << ", after " << events;
      ++tried;
    }
  }
}

// The store from one moment, the index from another.
TEST_F(SearchPower, LossOfEitherFile) {
  const uint64_t seed = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t count = bound("CORVAN_SEARCH_IMAGES", 40, 5000);
  random_.seed(seed + 1);
  record(seed + 1);
  for (uint64_t tried = 0; tried < count; ++tried) {
    const std::size_t of_store = below(record_.events.size() + 1);
    const std::size_t of_index = below(record_.events.size() + 1);
    DiskImage mixed;
    for (const auto& [name, content] : any_image(of_store)) {
      if (!is_index(name)) mixed[name] = content;
    }
    for (const auto& [name, content] : any_image(of_index)) {
      if (is_index(name)) mixed[name] = content;
    }
    ASSERT_EQ(open_image(mixed), "") << "CORVAN_SEARCH_SEED=" << seed << ", store after "
                                     << of_store << ", index after " << of_index;
  }
}

}  // namespace

}  // namespace corvan_test
