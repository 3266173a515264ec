#include "platform/linux/file_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/volume_traits.h"

namespace platform::posix {

bool IsWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

std::string PathThrough(FileAt file) {
  std::string path = "/proc/self/fd/" + std::to_string(file.folder);
  path += '/';
  return path += file.name;
}

int PathOfOpen(int descriptor, std::string* path) {
  char name[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), name, sizeof(name));
  if (length < 0) {
    return errno;
  }
  if (length == ssize_t{sizeof(name)}) {
    return ENAMETOOLONG;
  }
  path->assign(name, static_cast<std::size_t>(length));
  return 0;
}

Code FlushFolder(int folder) {
  const Descriptor descriptor(openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.Get() < 0) {
    return errno == EACCES ? kSuccess : CodeOf(errno);  // may be written, but not read
  }
  // EINVAL: a file system that has nothing to write.
  return fsync(descriptor.Get()) == 0 || errno == EINVAL ? kSuccess : CodeOf(errno, kWriteFault);
}

int RenameToFree(FileAt from, FileAt to) {
  std::atomic<bool>& inOneCall = VolumeTraits::Of(to.folder).renamesToFree;
  if (inOneCall) {
    if (renameat2(from.folder, from.name, to.folder, to.name, RENAME_NOREPLACE) == 0) {
      return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
      return errno;
    }
  }
  // A file system that can't do both at once.
  struct stat entry {};
  if (fstatat(to.folder, to.name, &entry, AT_SYMLINK_NOFOLLOW) == 0) {
    return EEXIST;
  }
  if (renameat(from.folder, from.name, to.folder, to.name) != 0) {
    return errno;  // EINVAL was of these names, such as those of a folder and one in it
  }
  inOneCall = false;
  return 0;
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
