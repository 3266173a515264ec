#include "platform/linux/file_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"

namespace platform::posix {

bool IsWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

Code FlushFolder(const std::string& folder) {
  const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.Get() < 0) {
    return errno == EACCES ? kSuccess : CodeOf(errno);  // may be written, but not read
  }
  // EINVAL: a file system that has nothing to write.
  return fsync(descriptor.Get()) == 0 || errno == EINVAL ? kSuccess : CodeOf(errno, kWriteFault);
}

int RenameToFree(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return errno;
  }
  // A file system that can't do both at once.
  struct stat entry {};
  if (lstat(to.c_str(), &entry) == 0) {
    return EEXIST;
  }
  return rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int RealPath(const std::string& path, std::string* real) {
  const std::unique_ptr<char, decltype(&std::free)> found(realpath(path.c_str(), nullptr),
                                                          &std::free);
  if (found == nullptr) {
    return errno;
  }
  *real = found.get();
  return 0;
}

}  // namespace platform::posix
