#include "platform/file_identity.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/error_map.h"
#include "platform/offline/volume/path_resolver.h"

namespace platform::files {

Code GetIdentity(cvn::StringView path, Identity* identity) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  struct stat target {};
  if (stat(host.path.c_str(), &target) != 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  *identity = {target.st_dev, target.st_ino};
  return kSuccess;
}

}  // namespace platform::files
