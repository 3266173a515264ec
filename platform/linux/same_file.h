// Whether two names lead to one file.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <optional>
#include <utility>

namespace platform::posix {

// By what the host tells of them. A number may be that of another file once the first is gone, so
// one of the two has to be held.
inline bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Device and number of what is open, as the host knows them: its driver isn't asked again, as it
// would be for times and sizes that may have changed.
using FileNumbers = std::pair<dev_t, ino_t>;
inline std::optional<FileNumbers> NumbersOf(int opened) {
  struct statx status {};
  if (statx(opened, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO, &status) != 0) {
    return std::nullopt;
  }
  return FileNumbers(makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino);
}

// Of what has a name: device, number, kind and count of names, as the host knows them once it has
// found the name. The mode is zero when there is nothing.
inline struct stat KnownStatus(int folder, const char* name) {
  struct stat entry {};
  struct statx status {};
  if (statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC,
            STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_INO, &status) == 0) {
    entry.st_dev = makedev(status.stx_dev_major, status.stx_dev_minor);
    entry.st_ino = status.stx_ino;
    entry.st_mode = status.stx_mode;
    entry.st_nlink = status.stx_nlink;
  }
  return entry;
}

}  // namespace platform::posix
