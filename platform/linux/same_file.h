// Whether two names lead to one file.
#pragma once

#include <sys/stat.h>

namespace platform::posix {

// By what the host tells of them. A number may be that of another file once the first is gone, so
// one of the two has to be held.
inline bool IsSameFile(const struct stat& left, const struct stat& right) {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

}  // namespace platform::posix
