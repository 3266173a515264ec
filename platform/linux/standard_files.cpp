#include "platform/standard_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/error_map.h"

namespace platform {

Code OpenStandardFile(StandardFile which, files::File* file) {
  const int stream = which == StandardFile::Input ? STDIN_FILENO : STDOUT_FILENO;
  const int descriptor = fcntl(stream, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (descriptor < 0) {
    return posix::Fail(posix::CodeOf(errno));
  }
  *file = files::File(descriptor);
  return kSuccess;
}

}  // namespace platform
