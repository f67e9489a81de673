// What conversions do with permissions and symbolic links.

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "tests/addons/encryption/conversion_fixture.h"

namespace corvan_test {

namespace {

using Corvan::ConversionResult;
using Corvan::decrypt_store;
using Corvan::encrypt_store;
using Corvan::StoreKeys;

TEST_F(ConversionTest, PermissionsStay) {
  for (const mode_t mode : {0600U, 0640U}) {
    ASSERT_EQ(0, chmod(file().c_str(), mode));
    StoreKeys::forget(pathname());
    EXPECT_TRUE(encrypt_store(pathname(), test_key(1)).detail.empty());
    struct stat status {};
    ASSERT_EQ(0, stat(file().c_str(), &status));
    EXPECT_EQ(mode, status.st_mode & 0777U);
    EXPECT_EQ(ConversionResult::kDone, decrypt_store(pathname()).result);
  }
}

TEST_F(ConversionTest, ALinkedStoreIsConvertedWhereItIs) {
  const std::string elsewhere = folder.file("elsewhere.sqlite");
  std::filesystem::rename(file(), elsewhere);
  std::filesystem::create_symlink(elsewhere, file());
  const auto before = contents();
  encrypt();
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
  EXPECT_EQ(before, contents());
  EXPECT_EQ("", files_with_planted_text(folder.path()));
  EXPECT_EQ(ConversionResult::kDone, decrypt_store(pathname()).result);
  EXPECT_EQ(before, contents());
}

}  // namespace

}  // namespace corvan_test
