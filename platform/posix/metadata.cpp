#include "platform/posix/metadata.h"

#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

namespace platform::posix {

void CopyMetadata(int from, const struct stat& entry, int to) {
  std::string names(XATTR_LIST_MAX, '\0');
  const ssize_t length = flistxattr(from, names.data(), names.size());
  names.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  // A volume with NTFS has these without listing them.
  for (const char* name : {"system.ntfs_attrib_be", "system.ntfs_acl"}) {
    names.append(name).push_back('\0');
  }
  std::vector<char> value(XATTR_SIZE_MAX);
  for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
    const ssize_t size = fgetxattr(from, &names[at], value.data(), value.size());
    if (size >= 0) {
      fsetxattr(to, &names[at], value.data(), static_cast<std::size_t>(size), 0);
    }
  }
  [[maybe_unused]] const int owned = fchown(to, entry.st_uid, entry.st_gid);
  fchmod(to, entry.st_mode & 07777);
}

}  // namespace platform::posix
