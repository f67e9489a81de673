// Checks that the tests' file system gets the bytes that are on the disk, also if SQLite encrypts.

#include "tests/faults/disk_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/encryption.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

constexpr const char* kText = "a text to look for on the disk";

// Whether the text is in a write to the file, its journal or its log, or in the files at the end.
bool reaches_disk(const std::string& settings) {
  const TemporaryFolder folder;
  DiskRecorder disk({});
  plant(folder.file("corvan"), settings + "create table t(a); insert into t values('" + kText +
                                   "'); pragma journal_mode=wal; update t set a=a||'.'");
  const auto has_text = [](const std::string& bytes) {
    return bytes.find(kText) != std::string::npos;
  };
  const auto& events = disk.record().events;
  EXPECT_FALSE(events.empty());
  const DiskImage image = read_folder(folder.path());
  return std::any_of(events.begin(), events.end(),
                     [&](const DiskEvent& event) { return has_text(event.bytes); }) ||
         std::any_of(image.begin(), image.end(),
                     [&](const auto& file) { return has_text(file.second); });
}

// Every cipher answers one of these; plain SQLite answers neither.
bool sqlite_has_cipher() {
  const TemporaryFolder folder;
  return !rows(folder.file("corvan"), "pragma cipher; pragma cipher_version").empty();
}

TEST(DiskRecord, ContainsPlainTextWithoutAKey) {
  EXPECT_EQ(reaches_disk(""), !stores_are_encrypted());
}

TEST(DiskRecord, ContainsNoPlainTextWithAKey) {
  if (!sqlite_has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  EXPECT_FALSE(reaches_disk("pragma key=\"x'" + std::string(64, '7') + "'\";"));
}

}  // namespace
}  // namespace corvan_test
