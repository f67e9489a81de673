// What the implementations for Windows share: wide characters, errors, private permissions, second
// attempts.

#ifndef TOOLS_PLATFORM_WIDE_H_
#define TOOLS_PLATFORM_WIDE_H_

#include <memory>
#include <string>
#include <string_view>

namespace corvan_tool {

// An error of the system, as GetLastError() returns it; 0 is success.
using SystemError = unsigned long;

// Lets other programs read, write, delete and rename an open file.
extern const unsigned long kShared;

// Invalid bytes, and surrogates without a partner, become U+FFFD.
std::wstring wide(std::string_view text);
std::string utf8(std::wstring_view text);

// The number of errno for an error of the system.
int errno_of(SystemError error);

// Sets errno to the last error of the system.
void set_errno();

// The security identifier of the user of this process as text; empty if it cannot be read.
std::wstring user_sid();

// Permissions for the owner alone, for a new file or folder. Its content inherits them.
class PrivateAttributes {
 public:
  PrivateAttributes();

  // A SECURITY_ATTRIBUTES. Null if the system does not tell who the user is.
  void* get() const { return attributes_.get(); }

 private:
  struct Release {
    void operator()(void* attributes) const;
  };
  std::unique_ptr<void, Release> attributes_;
};

// Whether another program, for example a virus scanner, may be the reason. A file that is being
// deleted also refuses access.
bool may_pass(SystemError error);

void pause_shortly();  // for 20 milliseconds

// Calls `attempt`, which returns 0 or an error of the system, until it succeeds, fails for a reason
// that does not pass, or has failed for about a second. Returns the last error.
template <typename Attempt>
SystemError try_for_a_second(const Attempt& attempt) {
  constexpr int kAttempts = 50;
  SystemError error = attempt();
  for (int i = 1; i < kAttempts && may_pass(error); ++i) {
    pause_shortly();
    error = attempt();
  }
  return error;
}

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_WIDE_H_
