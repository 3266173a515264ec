#include "platform/offline/volume/file_steps.h"

#include <sys/stat.h>

#include "platform/linux/error_map.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/share_locks.h"
#include "platform/offline/volume/short_names.h"

namespace platform::posix {

using files::Disposition;

Code LocateFile(cvn::StringView path, Disposition disposition, HostPath* host) {
  Code code = Resolve(path, host);
  if (host->device != Device::None) {
    return host->DeviceFault(kSuccess);  // it is opened, however that is asked for
  }
  if (code == kSuccess && host->IsFolder()) {
    return host->endsInSeparator ? kPathNotFound : kAccessDenied;
  }
  if (code == kSuccess && disposition == Disposition::CreateNew) {
    return kFileExists;
  }
  if (code == kSuccess) {
    code = FollowToOpen(host);
  }
  if (code == kFileNotFound && disposition != Disposition::OpenExisting) {
    return host->endsInSeparator ? kInvalidName : kSuccess;
  }
  return code;
}

Code CheckUnused(const HostPath& host) {
  if (host.device != Device::None) {
    return host.DeviceFault(kInvalidParameter);
  }
  return S_ISREG(host.entry.st_mode) && IsInUse(host.At(), host.entry) ? kSharingViolation
                                                                       : kSuccess;
}

bool IsSharedContent(const HostPath& host) {
  // Drivers count the short name on NTFS as well; a file has one at most.
  const nlink_t count = host.entry.st_nlink;
  return host.onMachine && S_ISREG(host.entry.st_mode) &&
         (count > 2 || (count == 2 && !ShortNameOf(host.At())));
}

WritableFolder::WritableFolder(const HostPath& place) : folder_(place.folder) {
  struct stat entry {};
  const int folder = place.At().folder;
  // On NTFS that mode is none of READONLY, and a change would put another descriptor in place.
  if (fstat(folder, &entry) == 0 && (entry.st_mode & S_IWUSR) == 0 &&
      DescriptorAttribute(folder) == nullptr &&
      fchmodat(folder, ".", (entry.st_mode & 07777) | S_IWUSR, 0) == 0) {
    before_ = entry.st_mode & 07777;
  }
}

WritableFolder::~WritableFolder() {
  if (before_) {
    fchmodat(folder_->Get(), ".", *before_, 0);
  }
}

}  // namespace platform::posix
