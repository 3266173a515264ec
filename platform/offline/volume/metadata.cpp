#include "platform/offline/volume/volume.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/extended_attributes.h"

namespace platform::posix {
namespace {

constexpr mode_t kPermissions = 07777;

bool IsUsers(std::string_view name) { return name.starts_with("user."); }

// The attributes of Windows are none, where they are kept in the same way.
bool IsStream(std::string_view name) { return IsUsers(name) && name != "user.DOSATTRIB"; }

// What the file doesn't have, or the other volume can't keep, is left out.
Code CopyExtended(int from, const char* name, int to) {
  std::vector<std::byte> value;
  bool isThere = false;
  const Code code = ReadExtended(from, name, &value, &isThere);
  if (code != kSuccess || !isThere || fsetxattr(to, name, value.data(), value.size(), 0) == 0 ||
      errno == EOPNOTSUPP) {
    return code;
  }
  const bool isDenied = errno == EPERM || errno == EACCES;
  return isDenied && !IsUsers(name) ? kSuccess : CodeOf(errno, kWriteFault);
}

// Calls `act` with each of the names until it gives another code than 0.
template <typename Act>
Code ForEach(const std::vector<std::string>& names, Act act) {
  Code code = kSuccess;
  for (auto name = names.begin(); code == kSuccess && name != names.end(); ++name) {
    code = act(name->c_str());
  }
  return code;
}

// The names of its streams.
Code ListStreams(int file, std::vector<std::string>* names) {
  const Code code = ListExtended(file, names);
  std::erase_if(*names, [](const std::string& name) { return !IsStream(name); });
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
  const char* descriptor = DescriptorAttribute(from);
  std::vector<std::string> names;
  const auto copy = [from, to](const char* name) { return CopyExtended(from, name, to); };
  Code code = ListExtended(from, &names);
  if (streams == Streams::Leave) {
    std::erase_if(names, IsStream);
  }
  if (descriptor != nullptr) {
    // Drivers for NTFS don't list these. The time of creation is ntfs-3g's only.
    names.insert(names.end(), {kAttributeWord, "system.ntfs_crtime"});
  }
  if (code == kSuccess) {
    code = ForEach(names, copy);
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
  std::vector<std::string> names;
  const Code code = ListStreams(from, &names);
  const auto copy = [&](const char* name) {
    const Code copied = CopyExtended(from, name, to);
    // Other volumes have no streams, and little room for these.
    return DescriptorAttribute(to) == nullptr ? kSuccess : copied;
  };
  return code == kSuccess ? ForEach(names, copy) : code;
}

Code RemoveStreams(int file) {
  std::vector<std::string> names;
  const Code code = ListStreams(file, &names);
  const auto remove = [file](const char* name) {
    const bool isGone = fremovexattr(file, name) == 0 || errno == ENODATA;
    return isGone ? kSuccess : CodeOf(errno, kWriteFault);
  };
  return code == kSuccess ? ForEach(names, remove) : code;
}

}  // namespace platform::posix
