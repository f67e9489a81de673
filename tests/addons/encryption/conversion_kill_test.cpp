// Conversions that are killed before each of their file calls, and the order of these calls, on
// which a loss of power depends.

#include <sys/vfs.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/addons/encryption/conversion_fixture.h"
#include "tests/addons/encryption/traced_process.h"

namespace corvan_test {

namespace {

using Corvan::Conversion;
using Corvan::ConversionResult;
using Corvan::StoreKey;
using Corvan::StoreKeys;

constexpr int kMessages = 30;
constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

// One of the three conversions. A key that is not valid stands for a plain store.
struct Way {
  const char* name;
  StoreKey (*from)();
  StoreKey (*to)();
  Conversion (*convert)(const cvrtc::Pathname& folder);
};

StoreKey no_key() {
  return StoreKey();
}
StoreKey first_key() {
  return test_key(1);
}
StoreKey second_key() {
  return test_key(2);
}

const std::vector<Way>& ways() {
  static const std::vector<Way> all = {
      {"Encrypt", no_key, first_key,
       [](const cvrtc::Pathname& folder) { return Corvan::encrypt_store(folder, first_key()); }},
      {"Decrypt", first_key, no_key,
       [](const cvrtc::Pathname& folder) {
         StoreKeys::set(folder, first_key());
         return Corvan::decrypt_store(folder);
       }},
      {"Rekey", first_key, second_key,
       [](const cvrtc::Pathname& folder) {
         return Corvan::rekey_store(folder, first_key(), second_key());
       }},
  };
  return all;
}

void use_key(const cvrtc::Pathname& folder, const StoreKey& key) {
  StoreKeys::forget(folder);
  if (key.is_valid()) StoreKeys::set(folder, key);
}

class ConversionKillTest : public ConversionTest, public testing::WithParamInterface<Way> {
 protected:
  // A store with a log, as a killed client leaves it.
  void SetUp() override {
    ConversionTest::SetUp();
    if (IsSkipped()) return;
    if (!can_trace()) GTEST_SKIP() << "processes cannot be traced here";
    std::filesystem::remove_all(store_folder());
    std::filesystem::create_directory(store_folder());
    use_key(pathname(), GetParam().from());
    make_store_with_log();
    expected_ = contents_of_copy();
  }

  // The folder as SetUp() left it.
  void restore() const {
    std::filesystem::remove_all(store_folder());
    std::filesystem::copy(before(), store_folder());
  }

  TracedRun convert(std::size_t kill_at) const {
    restore();
    return run_traced(
        [this] {
          use_key(pathname(), StoreKey());
          return static_cast<int>(GetParam().convert(pathname()).result);
        },
        kill_at);
  }

  // The old store or the new one; returns which.
  bool expect_old_or_new() {
    const bool is_new = reads_as(GetParam().to());
    EXPECT_TRUE(is_new || reads_as(GetParam().from()));
    return is_new;
  }

  // Calls the conversion once more, which must finish the work.
  void expect_finish() {
    const ConversionResult result = GetParam().convert(pathname()).result;
    EXPECT_TRUE(result == ConversionResult::kDone || result == ConversionResult::kAlreadyDone)
        << to_text(result);
    EXPECT_TRUE(reads_as(GetParam().to()));
    EXPECT_EQ(1U, files_of(store_folder()).size());
    if (GetParam().to().is_valid()) {
      EXPECT_EQ("", plaintext_below(store_folder()));
    }
  }

  // A copy that is being encrypted must never contain what it encrypts.
  void expect_no_leak() {
    const auto files = files_of(store_folder());
    for (const auto& [name, bytes] : files) {
      const bool is_plain = name == "corvan" || name.rfind("corvan-", 0) == 0
                                ? !GetParam().from().is_valid() || !GetParam().to().is_valid()
                                : !GetParam().to().is_valid();
      EXPECT_TRUE(is_plain || bytes.find(kPlanted) == std::string::npos) << name;
    }
  }

  // The file systems whose old blocks are overwritten, as far as tests run on them.
  bool writes_in_place() const {
    constexpr long kExt = 0xEF53;
    struct statfs system {};
    return statfs(folder.path().c_str(), &system) == 0 && system.f_type == kExt;
  }

 private:
  std::string before() const { return folder.file("before/"); }

  void make_store_with_log() const;
  std::vector<std::string> contents_of_copy() const;

  // On a copy, because reading changes a store's files.
  bool reads_as(const StoreKey& key) const {
    const std::string copy = folder.file("read/");
    std::filesystem::remove_all(copy);
    std::filesystem::copy(store_folder(), copy);
    const cvrtc::Pathname name(copy);
    use_key(name, key);
    bool same = false;
    try {
      same = corvan_test::contents(copy + "corvan") == expected_;
    } catch (const std::exception&) {
      // Another key.
    }
    StoreKeys::forget(name);
    return same;
  }

  std::vector<std::string> expected_;
};

// Saves one message more and kills the process, so that the message is in the log only. Returns if
// that fails.
int save_and_die(const std::string& folder) {
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder), "", "me")) return 1;
  store.save_message("room-0", Corvan::CV_GROUP, "CV:TxtMsg", "u", kPlanted + " last", true, 0, 0,
                     false, 2000, 0, "server-last", false, false, true);
  raise(SIGKILL);
  return 1;
}

void ConversionKillTest::make_store_with_log() const {
  const TracedRun run = run_traced(
      [this] {
        use_key(pathname(), GetParam().from());
        fill_store(store_folder(), kMessages);
        return save_and_die(store_folder());
      },
      kNever);
  EXPECT_FALSE(run.has_finished);
  std::filesystem::copy(store_folder(), before());
}

std::vector<std::string> ConversionKillTest::contents_of_copy() const {
  const std::string copy = folder.file("expected/");
  std::filesystem::copy(before(), copy);
  use_key(cvrtc::Pathname(copy), GetParam().from());
  const auto all = corvan_test::contents(copy + "corvan");
  StoreKeys::forget(cvrtc::Pathname(copy));
  return all;
}

TEST_P(ConversionKillTest, AKillBeforeEachFileCallLeavesTheOldStoreOrTheNew) {
  std::size_t kill_at = 0;
  std::size_t new_stores = 0;
  for (;; ++kill_at) {
    SCOPED_TRACE("killed before file call " + std::to_string(kill_at));
    const TracedRun run = convert(kill_at);
    if (expect_old_or_new()) ++new_stores;
    expect_no_leak();
    EXPECT_TRUE(!run.has_finished || run.status == 0);
    expect_finish();
    if (run.has_finished || HasFailure()) break;
  }
  EXPECT_EQ("", plaintext_elsewhere());
  EXPECT_GT(kill_at, 20U);
  EXPECT_GT(new_stores, 1U);
  EXPECT_LT(new_stores, kill_at);
}

// The position of the first or last call with this name on a path that ends so.
std::size_t first(const std::vector<FileCall>& calls, const std::string& name,
                  const std::string& end, std::size_t from = 0) {
  const auto found = std::find_if(calls.begin() + static_cast<std::ptrdiff_t>(from), calls.end(),
                                  [&](const FileCall& call) {
                                    return call.name == name && call.path.size() >= end.size() &&
                                           call.path.substr(call.path.size() - end.size()) == end;
                                  });
  return static_cast<std::size_t>(found - calls.begin());
}
std::size_t last(const std::vector<FileCall>& calls, const std::string& name,
                 const std::string& end) {
  std::size_t at = calls.size();
  for (std::size_t next = first(calls, name, end); next < calls.size();
       next = first(calls, name, end, next + 1)) {
    at = next;
  }
  return at;
}

TEST_P(ConversionKillTest, WhatMustSurviveALossOfPowerIsSyncedInTime) {
  const TracedRun run = convert(kNever);
  ASSERT_TRUE(run.has_finished);
  const std::vector<FileCall>& calls = run.calls;
  const std::size_t renamed = first(calls, "rename", "corvan.converting");
  ASSERT_LT(renamed, calls.size());
  // The old store contains its log before that is removed, and the removal is durable.
  EXPECT_LT(last(calls, "write", "/corvan"), last(calls, "sync", "/corvan"));
  EXPECT_LT(first(calls, "sync", "/corvan"), first(calls, "unlink", "/corvan-wal"));
  EXPECT_LT(first(calls, "unlink", "/corvan-wal"), renamed);
  EXPECT_LT(first(calls, "sync", "/store", first(calls, "unlink", "/corvan-wal")), renamed);
  // The copy is durable before it is renamed, and is not written to afterwards.
  const std::size_t written = last(calls, "write", "/corvan.converting");
  EXPECT_LT(written, first(calls, "sync", "/corvan.converting", written));
  EXPECT_LT(first(calls, "sync", "/corvan.converting", written), renamed);
  // The new name is durable before the old bytes are overwritten.
  const std::size_t overwritten = first(calls, "write", "(deleted)", renamed);
  EXPECT_LT(first(calls, "sync", "/store", renamed), overwritten);
  const bool is_overwritten = GetParam().to().is_valid() && writes_in_place();
  EXPECT_EQ(is_overwritten, overwritten < calls.size());
}

INSTANTIATE_TEST_SUITE_P(Ways, ConversionKillTest, testing::ValuesIn(ways()),
                         [](const auto& way) { return std::string(way.param.name); });

}  // namespace

}  // namespace corvan_test
