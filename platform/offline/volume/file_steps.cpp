#include "platform/offline/volume/file_steps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/linux/error_map.h"
#include "platform/offline/volume/share_locks.h"

namespace platform::posix {

using files::Disposition;

Code LocateFile(cvn::StringView path, Disposition disposition, HostPath* host) {
  const Code code = Resolve(path, host);
  if (code == kFileNotFound && disposition != Disposition::OpenExisting) {
    return host->endsInSeparator ? kInvalidName : kSuccess;
  }
  if (code != kSuccess) {
    return code;
  }
  if (disposition == Disposition::CreateNew) {
    return kFileExists;
  }
  if (host->IsFolder()) {
    return host->endsInSeparator ? kPathNotFound : kAccessDenied;
  }
  return kSuccess;
}

Code CheckUnused(const HostPath& host) {
  return S_ISREG(host.entry.st_mode) && IsInUse(host.path) ? kSharingViolation : kSuccess;
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

WritableFolder::WritableFolder(const std::string& path) : path_(path) {
  struct stat entry {};
  if (stat(path_.c_str(), &entry) == 0 && (entry.st_mode & S_IWUSR) == 0 &&
      chmod(path_.c_str(), (entry.st_mode & 07777) | S_IWUSR) == 0) {
    before_ = entry.st_mode & 07777;
  }
}

WritableFolder::~WritableFolder() {
  if (before_) {
    chmod(path_.c_str(), *before_);
  }
}

Code FlushFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return errno == EACCES ? kSuccess : CodeOf(errno);  // may be written, but not read
  }
  const Code code =
      fsync(descriptor) == 0 || errno == EINVAL ? kSuccess : CodeOf(errno, kWriteFault);
  close(descriptor);
  return code;
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

}  // namespace platform::posix
