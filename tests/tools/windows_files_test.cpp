// Files of the tool on Windows: held by other programs, and private.

#include <windows.h>

#include <aclapi.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/tools/pending_output_fixture.h"
#include "tools/platform/file_system.h"
#include "tools/store/pending_output.h"
#include "tools/ui/error.h"

namespace corvan_test {
namespace {

using corvan_tool::PendingOutput;

// Holds a file as a virus scanner does: others can read and write it, but not delete or rename it.
class HeldFile {
 public:
  explicit HeldFile(const std::string& path)
      : handle_(CreateFileW(std::filesystem::u8path(path).c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr)) {
    if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot hold " + path);
  }
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;
  ~HeldFile() { release(); }

  void release() {
    if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  HANDLE handle_;
};

class WindowsFilesTest : public PendingOutputTest {
 protected:
  static std::thread release_soon(HeldFile& held) {
    return std::thread([&held] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      held.release();
    });
  }
};

TEST_F(WindowsFilesTest, OutputIsKeptAlthoughAScannerHoldsItForAMoment) {
  PendingOutput output = PendingOutput::file(place("out"));
  write_file(output.path(), "made");
  HeldFile held(output.path());
  std::thread scanner = release_soon(held);
  EXPECT_NO_THROW(output.keep());
  scanner.join();
  EXPECT_EQ(read_file(place("out")), "made");
  EXPECT_EQ(content(), Rows{"out"});
}

TEST_F(WindowsFilesTest, OutputDisappearsAlthoughAScannerHoldsItForAMoment) {
  std::optional<HeldFile> held;
  std::thread scanner;
  {
    const PendingOutput output = PendingOutput::folder(place("out"));
    write_file(output.path() + "/inside", "made");
    held.emplace(output.path() + "/inside");
    scanner = release_soon(*held);
  }
  EXPECT_EQ(content(), Rows{});
  scanner.join();
}

TEST_F(WindowsFilesTest, OutputThatStaysHeldIsReportedAndNothingReplaced) {
  PendingOutput output = PendingOutput::file(place("out"));
  write_file(output.path(), "made");
  const HeldFile held(output.path());
  try {
    output.keep();
    ADD_FAILURE() << "a held file was renamed";
  } catch (const corvan_tool::ToolError& error) {
    const std::string text = error.what();
    EXPECT_EQ(text.find(place("out") + ": "), 0U) << text;
    EXPECT_NE(text.find("; nothing was kept"), std::string::npos) << text;
  }
  EXPECT_FALSE(file_exists(place("out")));
  EXPECT_EQ(read_file(output.path()), "made");
}

TEST_F(WindowsFilesTest, AFileThatStaysHeldIsNotDeleted) {
  write_file(place("file"), "mine");
  const HeldFile held(place("file"));
  EXPECT_NE(corvan_tool::remove_file(place("file")), 0);
  EXPECT_EQ(read_file(place("file")), "mine");
}

// Whether the file gives access to all users, directly or as members of the group "Users".
bool is_open_to_others(const std::string& path) {
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  std::wstring name = std::filesystem::u8path(path).wstring();
  if (GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, &list, nullptr, &descriptor) != ERROR_SUCCESS) {
    throw std::runtime_error("cannot read the permissions of " + path);
  }
  bool is_open = list == nullptr;
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    void* entry = nullptr;
    GetAce(list, i, &entry);
    const auto* const allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE || allowed->Mask == 0) continue;
    auto* const user = const_cast<DWORD*>(&allowed->SidStart);
    is_open = is_open || IsWellKnownSid(user, WinWorldSid) != 0 ||
              IsWellKnownSid(user, WinBuiltinUsersSid) != 0 ||
              IsWellKnownSid(user, WinAuthenticatedUserSid) != 0;
  }
  LocalFree(descriptor);
  return is_open;
}

TEST_F(WindowsFilesTest, NewOutputIsPrivate) {
  PendingOutput file = PendingOutput::file(place("file"));
  PendingOutput made = PendingOutput::folder(place("folder"));
  EXPECT_FALSE(is_open_to_others(file.path()));
  EXPECT_FALSE(is_open_to_others(made.path()));
  file.keep();
  made.keep();
  EXPECT_FALSE(is_open_to_others(place("file")));
  EXPECT_FALSE(is_open_to_others(place("folder")));
}

}  // namespace
}  // namespace corvan_test
