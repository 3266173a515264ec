#include "platform/offline/volume/volume.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"

namespace platform::posix {
namespace {

constexpr mode_t kPermissions = 07777;

// The names, each with a zero after it.
Code ListExtended(int file, std::string* names) {
  names->resize(XATTR_LIST_MAX);
  const ssize_t length = flistxattr(file, names->data(), names->size());
  if (length < 0 && errno != EOPNOTSUPP) {
    return CodeOf(errno, kReadFault);
  }
  names->resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  // A volume with NTFS has these without listing them.
  for (const char* name : {"system.ntfs_attrib_be", "system.ntfs_acl"}) {
    names->append(name).push_back('\0');
  }
  return kSuccess;
}

Code CopyExtended(int from, const char* name, int to, std::vector<char>* value) {
  value->resize(XATTR_SIZE_MAX);
  const ssize_t size = fgetxattr(from, name, value->data(), value->size());
  if (size < 0) {
    const bool isNone = errno == ENODATA || errno == EOPNOTSUPP;
    return isNone ? kSuccess : CodeOf(errno, kReadFault);
  }
  if (fsetxattr(to, name, value->data(), static_cast<std::size_t>(size), 0) == 0 ||
      errno == EOPNOTSUPP) {
    return kSuccess;
  }
  const bool isOurs = std::string_view(name).starts_with("user.");
  const bool isDenied = errno == EPERM || errno == EACCES;
  return isDenied && !isOurs ? kSuccess : CodeOf(errno, kWriteFault);
}

// A volume whose files have no permissions of their own shows the same ones for both.
Code CopyPermissions(const struct stat& entry, int to) {
  if (fchmod(to, entry.st_mode & kPermissions) == 0) {
    return kSuccess;
  }
  const Code code = CodeOf(errno);
  struct stat made {};
  const bool isSame = fstat(to, &made) == 0 && ((made.st_mode ^ entry.st_mode) & kPermissions) == 0;
  return isSame ? kSuccess : code;
}

}  // namespace

Code CopyMetadata(int from, const struct stat& entry, int to) {
  std::string names;
  Code code = ListExtended(from, &names);
  std::vector<char> value;
  for (std::size_t at = 0; code == kSuccess && at < names.size(); at = names.find('\0', at) + 1) {
    code = CopyExtended(from, &names[at], to, &value);
  }
  // EINVAL: an owner that a user namespace shows, but can't give.
  if (code == kSuccess && fchown(to, entry.st_uid, entry.st_gid) != 0 && errno != EPERM &&
      errno != EINVAL) {
    code = CodeOf(errno);
  }
  return code == kSuccess ? CopyPermissions(entry, to) : code;
}

Code CopyMetadata(const HostPath& from, int to) {
  const Descriptor file(from.Open(O_RDONLY | O_NONBLOCK));
  return file.Get() < 0 ? CodeOf(errno) : CopyMetadata(file.Get(), from.entry, to);
}

}  // namespace platform::posix
