// Conversions on Windows: open files, access lists, paths.

#include <windows.h>

// After windows.h, whose types they need.
#include <aclapi.h>
#include <sddl.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/addons/encryption/conversion_fixture.h"

namespace corvan_test {

namespace {

using Corvan::ConversionResult;
using Corvan::decrypt_store;
using Corvan::encrypt_store;
using Corvan::StoreKeys;

using Local = std::unique_ptr<void, HLOCAL (*)(HLOCAL)>;

std::wstring wide(const std::string& path) {
  return std::filesystem::u8path(path).wstring();
}

// The access list as text.
std::wstring access_list(const std::string& file) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(wide(file).c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    return L"none";
  }
  const Local kept(descriptor, LocalFree);
  LPWSTR text = nullptr;
  ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                       DACL_SECURITY_INFORMATION, &text, nullptr);
  const Local kept_text(text, LocalFree);
  return text;
}

void set_access_list(const std::string& file, const wchar_t* text) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1,
                                                                   &descriptor, nullptr));
  const Local kept(descriptor, LocalFree);
  ASSERT_TRUE(SetFileSecurityW(wide(file).c_str(),
                               DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                               descriptor));
}

class WindowsConversion : public ConversionTest {
 protected:
  // A handle of another program.
  Local hold(DWORD sharing) const {
    const HANDLE handle = CreateFileW(wide(file()).c_str(), GENERIC_READ, sharing, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE);
    return {handle, [](HLOCAL held) -> HLOCAL {
              CloseHandle(held);
              return nullptr;
            }};
  }
};

// Only SYSTEM and the owner.
TEST_F(WindowsConversion, AccessListStays) {
  set_access_list(file(), L"D:P(A;;FA;;;SY)(A;;FA;;;OW)");
  const std::wstring before = access_list(file());
  if (before.rfind(L"D:P", 0) != 0) GTEST_SKIP() << "this system keeps no access lists";
  encrypt();
  EXPECT_EQ(before, access_list(file()));
  EXPECT_EQ(ConversionResult::kDone, decrypt_store(pathname()).result);
  EXPECT_EQ(before, access_list(file()));
}

// SQLite opens a file without FILE_SHARE_DELETE, others with it.
TEST_F(WindowsConversion, AFileThatAnotherProgramHoldsIsNotReplaced) {
  const auto before = contents();
  for (const DWORD sharing : {DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE},
                              DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE}}) {
    const Local held = hold(sharing);
    const Corvan::Conversion conversion = encrypt_store(pathname(), test_key(1));
    EXPECT_EQ(ConversionResult::kInUse, conversion.result) << conversion.detail;
    EXPECT_EQ(1U, files_of(store_folder()).size());
    EXPECT_EQ(before, contents());
    EXPECT_EQ(1U, log.take().size());
  }
  encrypt();
  EXPECT_EQ(before, contents());
}

TEST_F(WindowsConversion, AnIdleConnectionKeepsTheFileFromBeingReplaced) {
  const auto before = contents();
  {
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open_v2(file().c_str(), &db, SQLITE_OPEN_READWRITE, nullptr));
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> late(db, sqlite3_close);
    EXPECT_EQ(ConversionResult::kInUse, encrypt_store(pathname(), test_key(1)).result);
    EXPECT_EQ(SQLITE_OK,
              sqlite3_exec(db, "create table t(a); drop table t", nullptr, nullptr, nullptr));
  }
  EXPECT_EQ(1U, files_of(store_folder()).size());
  EXPECT_EQ(before, contents());
  encrypt();
  EXPECT_EQ(before, contents());
}

TEST_F(WindowsConversion, AnOpenCopyOfAnEarlierConversionIsReported) {
  write_file(file() + ".converting", kPlanted);
  const HANDLE handle =
      CreateFileW(wide(file() + ".converting").c_str(), GENERIC_READ,
                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(ConversionResult::kInUse, encrypt_store(pathname(), test_key(1)).result);
  CloseHandle(handle);
  encrypt();
  EXPECT_EQ(1U, files_of(store_folder()).size());
}

TEST_F(WindowsConversion, FolderWithChineseCharactersByAnySpelling) {
  const std::string place = folder.path() + "\u804a\u5929/";
  std::filesystem::rename(std::filesystem::u8path(store_folder()), std::filesystem::u8path(place));
  const auto before = corvan_test::contents(place + "corvan");
  std::string other = place;
  for (char& c : other) c = c == '/' ? '\\' : c;
  EXPECT_EQ(ConversionResult::kDone, encrypt_store(cvrtc::Pathname(place), test_key(1)).result);
  EXPECT_EQ(before, corvan_test::contents(other + "corvan"));
  EXPECT_EQ(ConversionResult::kDone, decrypt_store(cvrtc::Pathname(other)).result);
  EXPECT_EQ(before, corvan_test::contents(place + "corvan"));
}

TEST_F(WindowsConversion, FolderThatIsNotUtf8HasNoStore) {
  const cvrtc::Pathname place(folder.path() + "\xcf\xfb/");
  EXPECT_EQ(ConversionResult::kNoStore, encrypt_store(place, test_key(1)).result);
  EXPECT_EQ(ConversionResult::kNoStore, decrypt_store(place).result);
  EXPECT_FALSE(StoreKeys::set(place, test_key(1)));
  StoreKeys::forget(place);
}

}  // namespace

}  // namespace corvan_test
