#include "platform/linux/stop_signals.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>

#include "platform/stop_request.h"

namespace platform {
namespace {

constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> firstSignal = 0;
std::atomic<int> wakeUp = -1;
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler uses them");

void Remember(int signal) {
  const int before = errno;
  int none = 0;
  firstSignal.compare_exchange_strong(none, signal);
  // It can't fail but when it has been written to 2^64 times.
  [[maybe_unused]] const int written = eventfd_write(wakeUp, 1);
  errno = before;
}

}  // namespace

namespace stop {

void Watch() {
  if (wakeUp >= 0) {
    return;
  }
  wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  for (const int signal : kStopSignals) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) {
      continue;
    }
    action = {};
    action.sa_handler = Remember;
    action.sa_flags = SA_RESTART;  // the command that runs goes on
    sigaction(signal, &action, nullptr);
  }
}

bool IsAsked() { return firstSignal != 0; }

int EndStatus(std::int32_t exitCode) {
  if (IsAsked()) {
    std::fflush(nullptr);
    std::signal(firstSignal, SIG_DFL);
    raise(firstSignal);
  }
  constexpr int kSeenByHost = 0xFF;
  return exitCode != 0 && (exitCode & kSeenByHost) == 0 ? kSeenByHost : exitCode & kSeenByHost;
}

}  // namespace stop

namespace posix {

int StopDescriptor() { return wakeUp; }

}  // namespace posix
}  // namespace platform
