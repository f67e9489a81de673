// What the implementations for Windows share: wide characters, errors, private permissions, second
// attempts.

#ifndef TOOLS_PLATFORM_WIDE_H_
#define TOOLS_PLATFORM_WIDE_H_

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <string>
#include <string_view>

namespace corvan_tool {

// Lets other programs read, write, delete and rename an open file.
constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Invalid bytes, and surrogates without a partner, become U+FFFD.
std::wstring wide(std::string_view text);
std::string utf8(std::wstring_view text);

// The number of errno for an error of the system.
int errno_of(DWORD error);

// Sets errno to the last error of the system.
void set_errno();

// The security identifier of the user of this process as text; empty if it cannot be read.
std::wstring user_sid();

// Permissions for the owner alone, for a new file or folder. Its content inherits them.
class PrivateAttributes {
 public:
  PrivateAttributes();
  PrivateAttributes(const PrivateAttributes&) = delete;
  PrivateAttributes& operator=(const PrivateAttributes&) = delete;
  ~PrivateAttributes();

  // Null if the system cannot express them: then the new file inherits those of its folder.
  SECURITY_ATTRIBUTES* get() { return descriptor_ == nullptr ? nullptr : &attributes_; }

 private:
  PSECURITY_DESCRIPTOR descriptor_ = nullptr;
  SECURITY_ATTRIBUTES attributes_ = {};
};

// Whether another program, for example a virus scanner, may be the reason. A file that is being
// deleted also refuses access.
bool may_pass(DWORD error);

// Calls `attempt`, which returns 0 or an error of the system, until it succeeds, fails for a reason
// that does not pass, or has failed for about a second. Returns the last error.
template <typename Attempt>
DWORD try_for_a_second(const Attempt& attempt) {
  constexpr int kAttempts = 50;
  constexpr DWORD kPause = 20;  // milliseconds
  DWORD error = attempt();
  for (int i = 1; i < kAttempts && may_pass(error); ++i) {
    Sleep(kPause);
    error = attempt();
  }
  return error;
}

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_WIDE_H_
