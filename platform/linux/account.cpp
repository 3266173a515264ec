#include "platform/linux/account.h"

#include <linux/capability.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

namespace platform::posix {

Account HostAccount() {
  std::vector<char> buffer(16384);
  passwd record{};
  passwd* found = nullptr;
  getpwuid_r(geteuid(), &record, buffer.data(), buffer.size(), &found);
  if (found == nullptr) {
    return {std::to_string(geteuid()), std::string()};
  }
  return {record.pw_name, record.pw_dir};
}

bool OverridesOwners() {
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
  constexpr std::uint32_t kNeeded = (1U << CAP_FOWNER) | (1U << CAP_DAC_OVERRIDE);
  return syscall(SYS_capget, &header, sets) == 0 && (sets[0].effective & kNeeded) == kNeeded;
}

}  // namespace platform::posix
