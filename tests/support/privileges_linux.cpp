#include "tests/support/privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

namespace corvan_test {

bool drop_privileges() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  if (syscall(SYS_capset, &header, none.data()) != 0) return false;
  // Without this, a program that root starts gets them back.
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

}  // namespace corvan_test
