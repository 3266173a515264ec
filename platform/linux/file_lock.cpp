#include "platform/linux/file_lock.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "platform/clock.h"

namespace platform::posix {
namespace {

constexpr std::int64_t kLongestWait = 30 * clock::kTicksPerSecond;
constexpr std::uint32_t kLongestPause = 20;  // milliseconds

}  // namespace

Code WaitForLock(int descriptor, bool alone, bool* isHeld) {
  const int operation = (alone ? LOCK_EX : LOCK_SH) | LOCK_NB;
  const std::int64_t end = clock::NowTicks() + kLongestWait;
  std::uint32_t pause = 1;
  *isHeld = true;
  while (flock(descriptor, operation) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      *isHeld = false;
      return kSuccess;
    }
    if (clock::NowTicks() > end) {
      *isHeld = false;
      return kBusy;
    }
    clock::Sleep(pause);
    pause = std::min(2 * pause, kLongestPause);
  }
  return kSuccess;
}

}  // namespace platform::posix
