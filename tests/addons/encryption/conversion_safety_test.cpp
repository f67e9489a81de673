// Conversions without a folder, of other encodings, and after unfinished ones.

#include <filesystem>
#include <string>

#include "tests/addons/encryption/conversion_fixture.h"

namespace corvan_test {

namespace {

using Corvan::ConversionResult;
using Corvan::encrypt_store;

class ConversionSafetyTest : public ConversionTest {};

TEST_F(ConversionSafetyTest, WithoutAFolderNothingIsConverted) {
  const std::string before = std::filesystem::current_path().string();
  std::filesystem::current_path(store_folder());
  EXPECT_EQ(ConversionResult::kNoStore, encrypt_store(cvrtc::Pathname(), test_key(1)).result);
  std::filesystem::current_path(before);
  EXPECT_EQ(0U, read_file(file()).find("SQLite format 3"));
}

TEST_F(ConversionSafetyTest, AStoreInUtf16IsConverted) {
  std::filesystem::remove(file());
  write_file(file(), "");
  run_sql(store_folder(),
          "pragma encoding='UTF-16le'; create table t(a); insert into t values('ä')");
  const auto before = contents();
  encrypt();
  EXPECT_EQ(before, contents());
}

TEST_F(ConversionSafetyTest, AnUnfinishedPlainCopyIsRemovedByAnyConversion) {
  encrypt();
  write_file(file() + ".converting", kPlanted);
  EXPECT_EQ(ConversionResult::kDone,
            Corvan::rekey_store(pathname(), test_key(1), test_key(2)).result);
  EXPECT_EQ("", files_with_planted_text(store_folder()));
}

}  // namespace

}  // namespace corvan_test
