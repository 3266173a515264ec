#include "platform/offline/volume/file_steps.h"

#include <sys/stat.h>

#include <utility>

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

WritableFolder::WritableFolder(std::string path) : path_(std::move(path)) {
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

}  // namespace platform::posix
