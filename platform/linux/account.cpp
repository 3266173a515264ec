#include "platform/linux/account.h"

#include <pwd.h>
#include <unistd.h>

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

}  // namespace platform::posix
