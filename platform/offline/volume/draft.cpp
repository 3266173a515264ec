#include "platform/draft.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platform/linux/atomic_file.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {

void RemoveAbandonedDrafts(cvn::StringView path) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code == kSuccess || code == kFileNotFound) {
    posix::RemoveAbandonedDrafts(host.At().folder);
  }
}

Code ClaimDraft(cvn::StringView path, File* claim) {
  posix::HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code != kSuccess) {
    return posix::Fail(code);
  }
  File file(host.Open(O_RDONLY | O_NONBLOCK));
  if (!file.IsOpen()) {
    return posix::Fail(posix::CodeOf(errno));
  }
  // Without locks the maker's life counts alone.
  flock(static_cast<int>(file.Handle()), LOCK_EX | LOCK_NB);
  *claim = std::move(file);
  return kSuccess;
}

}  // namespace platform::files
