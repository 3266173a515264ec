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
#include "platform/offline/volume/ntfs_security.h"

namespace platform::posix {
namespace {

using namespace std::string_view_literals;

constexpr mode_t kPermissions = 07777;

bool IsUsers(std::string_view name) { return name.starts_with("user."); }

// The attributes of Windows are none, where they are kept in the same way.
bool IsStream(std::string_view name) { return IsUsers(name) && name != "user.DOSATTRIB"; }

// The names, each with a zero after it. Most files have none.
Code ListExtended(int file, std::string* names) {
  ssize_t length = flistxattr(file, nullptr, 0);
  if (length > 0) {
    names->resize(XATTR_LIST_MAX);
    length = flistxattr(file, names->data(), names->size());
  }
  if (length < 0 && errno != EOPNOTSUPP) {
    return errno == E2BIG ? kCantAccessFile : CodeOf(errno, kReadFault);
  }
  names->resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  return kSuccess;
}

Code CopyExtended(int from, const char* name, int to, std::vector<char>* value) {
  value->resize(XATTR_SIZE_MAX);
  const ssize_t size = fgetxattr(from, name, value->data(), value->size());
  if (size < 0) {
    const bool isNone = errno == ENODATA || errno == EOPNOTSUPP;
    return isNone ? kSuccess : errno == E2BIG ? kCantAccessFile : CodeOf(errno, kReadFault);
  }
  if (fsetxattr(to, name, value->data(), static_cast<std::size_t>(size), 0) == 0 ||
      errno == EOPNOTSUPP) {
    return kSuccess;
  }
  const bool isDenied = errno == EPERM || errno == EACCES;
  return isDenied && !IsUsers(name) ? kSuccess : CodeOf(errno, kWriteFault);
}

// Calls `act` with each of the names that `isMeant` accepts, until it gives another code than 0.
template <typename IsMeant, typename Act>
Code ForEach(const std::string& names, IsMeant isMeant, Act act) {
  Code code = kSuccess;
  for (std::size_t at = 0; code == kSuccess && at < names.size(); at = names.find('\0', at) + 1) {
    code = isMeant(&names[at]) ? act(&names[at]) : kSuccess;
  }
  return code;
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

Code CopyMetadata(int from, const struct stat& entry, int to, Streams streams) {
  const char* descriptor = DescriptorAttribute(from, entry.st_dev);
  std::string names;
  std::vector<char> value;
  const auto copy = [&](const char* name) { return CopyExtended(from, name, to, &value); };
  Code code = ListExtended(from, &names);
  if (descriptor != nullptr) {
    // Drivers for NTFS don't list these. The time of creation is ntfs-3g's only.
    names.append("system.ntfs_attrib_be\0system.ntfs_crtime\0"sv);
  }
  if (code == kSuccess) {
    code = ForEach(
        names, [&](const char* name) { return streams == Streams::Keep || !IsStream(name); }, copy);
  }
  // EINVAL: an owner that a user namespace shows, but can't give.
  if (code == kSuccess && fchown(to, entry.st_uid, entry.st_gid) != 0 && errno != EPERM &&
      errno != EINVAL) {
    code = CodeOf(errno);
  }
  if (code == kSuccess) {
    code = CopyPermissions(entry, to);
  }
  // Last, since a driver that keeps owners and permissions makes them a descriptor of its own.
  return code == kSuccess && descriptor != nullptr ? copy(descriptor) : code;
}

Code CopyMetadata(const HostPath& from, int to, Streams streams) {
  const Descriptor file(from.Open(O_RDONLY | O_NONBLOCK));
  return file.Get() < 0 ? CodeOf(errno) : CopyMetadata(file.Get(), from.entry, to, streams);
}

Code CopyStreams(int from, int to) {
  struct stat target {};
  std::string names;
  std::vector<char> value;
  const Code code = fstat(to, &target) == 0 ? ListExtended(from, &names) : CodeOf(errno);
  const auto copy = [&](const char* name) {
    const Code copied = CopyExtended(from, name, to, &value);
    // Other volumes have no streams, and little room for these.
    return DescriptorAttribute(to, target.st_dev) == nullptr ? kSuccess : copied;
  };
  return code == kSuccess ? ForEach(names, IsStream, copy) : code;
}

Code RemoveStreams(int file) {
  std::string names;
  const Code code = ListExtended(file, &names);
  const auto remove = [file](const char* name) {
    const bool isGone = fremovexattr(file, name) == 0 || errno == ENODATA;
    return isGone ? kSuccess : CodeOf(errno, kWriteFault);
  };
  return code == kSuccess ? ForEach(names, IsStream, remove) : code;
}

}  // namespace platform::posix
