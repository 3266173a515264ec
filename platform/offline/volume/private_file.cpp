#include "platform/private_file.h"

#include <sys/stat.h>

#include "platform/linux/error_map.h"
#include "platform/offline/volume/ntfs_security.h"

namespace platform::files {

Code CreatePrivate(cvn::StringView path, File* file) {
  const mode_t usualMask = umask(S_IRWXG | S_IRWXO);
  const Code code = Open(path, Access::Write, Share::None, Disposition::CreateNew, file);
  umask(usualMask);
  return code == kSuccess ? posix::Report(posix::KeepForOwner(static_cast<int>(file->Handle())))
                          : code;
}

}  // namespace platform::files
