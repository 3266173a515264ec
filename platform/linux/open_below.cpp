#include "platform/linux/open_below.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "platform/linux/descriptor.h"

namespace platform::posix {
namespace {

int OpenInOneCall(int folder, const std::string& path, int flags, std::uint64_t resolve) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS | resolve;
  // The kernel gives up on ".." of a link while folders are being renamed.
  constexpr int kAttempts = 16;
  long found = -1;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    found = syscall(SYS_openat2, folder, path.c_str(), &how, sizeof(how));
    if (found >= 0 || errno != EAGAIN) {
      break;
    }
  }
  return static_cast<int>(found);
}

// A kernel before 5.6, or a container's filter that doesn't know the call.
bool IsUnknownCall(int opened) { return opened < 0 && (errno == ENOSYS || errno == EPERM); }

int FindStepByStep(int folder, const std::string& path) {
  Descriptor at(openat(folder, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (std::size_t begin = 0; begin < path.size() && at.Get() >= 0;) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    at.Reset(
        openat(at.Get(), path.substr(begin, end - begin).c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat entry {};
    if (at.Get() >= 0 && fstat(at.Get(), &entry) == 0 && S_ISLNK(entry.st_mode)) {
      errno = ELOOP;
      return -1;
    }
    begin = end + 1;
  }
  return at.Release();
}

}  // namespace

int FindBelow(int folder, const std::string& path) {
  const int found = OpenInOneCall(folder, path, O_PATH, 0);
  return IsUnknownCall(found) ? FindStepByStep(folder, path) : found;
}

int OpenBelow(int folder, const std::string& path, int flags) {
  const int opened = OpenInOneCall(folder, path, flags, RESOLVE_NO_SYMLINKS);
  if (!IsUnknownCall(opened)) {
    return opened;
  }
  const Descriptor found(FindStepByStep(folder, path));
  return found.Get() < 0 ? -1 : OpenFound(found.Get(), flags);
}

int OpenFound(int found, int flags) {
  const std::string name = "/proc/self/fd/" + std::to_string(found);
  int descriptor = -1;
  do {
    descriptor = open(name.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

}  // namespace platform::posix
