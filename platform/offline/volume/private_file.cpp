#include "platform/private_file.h"

#include <sys/stat.h>

#include "platform/linux/error_map.h"
#include "platform/offline/volume/file_steps.h"

namespace platform::files {

Code CreatePrivate(cvn::StringView path, File* file) {
  const mode_t usualMask = umask(S_IRWXG | S_IRWXO);
  // The descriptor that its folder passes on would let others in before it has its own.
  const Code code = posix::OpenFile(path, Access::Write, Share::None, Disposition::CreateNew,
                                    posix::Readers::OwnerOnly, file);
  umask(usualMask);
  return posix::Report(code);
}

}  // namespace platform::files
