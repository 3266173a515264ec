#include "platform/private_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/descriptor.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {

namespace {

constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

// What isn't this account's to change stays, and so does what a link leads to.
void MakePrivate(cvn::StringView path) {
  posix::HostPath host;
  if (posix::Resolve(path, &host) != kSuccess) {
    return;
  }
  const posix::Descriptor folder(
      open(host.path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (folder.Get() >= 0 && fchown(folder.Get(), geteuid(), getegid()) == 0) {
    fchmod(folder.Get(), S_IRWXU);  // a file system without permissions keeps nobody out
  }
}

}  // namespace

Code CreatePrivate(cvn::StringView path, File* file) {
  const mode_t usualMask = umask(kOthers);
  const Code code = Open(path, Access::Write, Share::None, Disposition::CreateNew, file);
  umask(usualMask);
  return code;
}

Code CreatePrivateDirectory(cvn::StringView path) {
  const mode_t usualMask = umask(kOthers);
  const Code code = CreateDirectory(path);
  umask(usualMask);
  if (code == kAlreadyExists) {
    MakePrivate(path);
    SetLastError(code);
  }
  return code;
}

}  // namespace platform::files
