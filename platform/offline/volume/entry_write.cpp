#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/entry_state.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using machine::EntryState;

constexpr mode_t kPermissions = 07777;
constexpr const char* kNtfsDescriptor = "system.ntfs_acl";

bool Has(const EntryState& state, std::string_view name) {
  return std::ranges::any_of(state.extended, [name](const auto& one) { return one.first == name; });
}

// All but the descriptor.
Code WriteExtended(int file, const EntryState& now, const EntryState& wanted) {
  for (const auto& [name, value] : now.extended) {
    const bool goes = name != kNtfsDescriptor && !Has(wanted, name);
    if (goes && fremovexattr(file, name.c_str()) != 0 && errno != ENODATA) {
      return CodeOf(errno);
    }
  }
  for (const auto& one : wanted.extended) {
    const auto& [name, value] = one;
    if (!IsOfState(name)) {
      return kInvalidParameter;  // a state that was read has none of these
    }
    if (name != kNtfsDescriptor && std::ranges::find(now.extended, one) == now.extended.end() &&
        fsetxattr(file, name.c_str(), value.data(), value.size(), 0) != 0) {
      return CodeOf(errno);
    }
  }
  return kSuccess;
}

// A driver for NTFS may have no permissions to change.
Code WritePermissions(int file, mode_t wanted) {
  struct stat entry {};
  if (fstat(file, &entry) != 0) {
    return CodeOf(errno);
  }
  const bool isSet = (entry.st_mode & kPermissions) == wanted || fchmod(file, wanted) == 0;
  return isSet || errno == EOPNOTSUPP ? kSuccess : CodeOf(errno);
}

// A driver for NTFS makes a new descriptor when permissions change.
Code WriteDescriptor(int file, const EntryState& wanted) {
  const auto found = std::ranges::find(wanted.extended, kNtfsDescriptor,
                                       &decltype(wanted.extended)::value_type::first);
  if (found == wanted.extended.end()) {
    return kSuccess;
  }
  std::vector<std::byte> now(XATTR_SIZE_MAX);
  const ssize_t size = fgetxattr(file, kNtfsDescriptor, now.data(), now.size());
  now.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  const std::vector<std::byte>& bytes = found->second;
  return now == bytes || fsetxattr(file, kNtfsDescriptor, bytes.data(), bytes.size(), 0) == 0
             ? kSuccess
             : CodeOf(errno);
}

Code WriteTime(int file, std::uint64_t wanted) {
  struct stat entry {};
  if (fstat(file, &entry) != 0) {
    return CodeOf(errno);
  }
  const timespec times[] = {{0, UTIME_OMIT}, TimeOf(wanted)};
  const bool isSet =
      wanted == 0 || FileTimeOf(entry.st_mtim) == wanted || futimens(file, times) == 0;
  return isSet ? kSuccess : CodeOf(errno);
}

}  // namespace

bool HasUnseenDescriptor(const EntryState& found, const EntryState& told) {
  return Has(found, kNtfsDescriptor) && !Has(told, kNtfsDescriptor);
}

Code WriteEntryState(FileAt entry, const EntryState& state) {
  EntryState now;
  files::File file;
  Code code = ReadEntryStatus(entry, &now, &file);
  if (code != kSuccess || now.kind != state.kind) {
    return code == kSuccess ? kInvalidParameter : code;
  }
  if (now.kind == machine::EntryKind::Link) {
    return kSuccess;
  }
  const int node = static_cast<int>(file.Handle());
  // The extended attributes of what its owner may not write to can't be written either.
  if (now.extended != state.extended) {
    code = WritePermissions(node, now.mode | S_IWUSR);
    code = code == kSuccess ? WriteExtended(node, now, state) : code;
  }
  struct stat status {};
  if (code == kSuccess && fstat(node, &status) != 0) {
    code = CodeOf(errno);
  }
  code = code == kSuccess ? StoreAttributes(node, status, state.attributes) : code;
  // Where there is a descriptor the host's permissions are a view of it.
  const EntryState& described = HasUnseenDescriptor(now, state) ? now : state;
  code = code == kSuccess ? WritePermissions(node, described.mode) : code;
  code = code == kSuccess ? WriteDescriptor(node, described) : code;
  return code == kSuccess ? WriteTime(node, static_cast<std::uint64_t>(state.written)) : code;
}

}  // namespace platform::posix
