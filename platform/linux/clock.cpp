#include "platform/clock.h"

#include <poll.h>
#include <sched.h>

#include <chrono>
#include <ctime>
#include <limits>

#include "platform/linux/stop_signals.h"

namespace platform::clock {
namespace {

constexpr long kNanosecondsPerTick = 100;
constexpr long kNanosecondsPerSecond = 1'000'000'000;

timespec Read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now;
}

}  // namespace

std::int64_t NowTicks() {
  const timespec now = Read(CLOCK_REALTIME);
  return now.tv_sec * kTicksPerSecond + now.tv_nsec / kNanosecondsPerTick;
}

LocalTime ToLocalTime(std::int64_t seconds) {
  [[maybe_unused]] static const bool kZoneRead = (tzset(), true);  // localtime_r need not do it
  const time_t moment = seconds;
  tm local{};
  if (localtime_r(&moment, &local) == nullptr) {
    return {};  // the year does not fit
  }
  return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
          local.tm_hour,        local.tm_min,     local.tm_sec};
}

std::uint32_t TickCount() {
  const timespec now = Read(CLOCK_BOOTTIME);  // counts on while the system sleeps, as GetTickCount
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000 +
                                    static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000);
}

std::uint32_t TimerMilliseconds() { return TickCount(); }

void Sleep(std::uint32_t milliseconds) {
  constexpr std::uint32_t kForEver = std::numeric_limits<std::uint32_t>::max();
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  // Until a moment and not for a time, so that signals do not make it longer.
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  pollfd stop = {posix::StopDescriptor(), POLLIN, 0};
  for (bool isOver = false; !isOver;) {
    const std::chrono::nanoseconds left = until - std::chrono::steady_clock::now();
    const timespec time = {left.count() / kNanosecondsPerSecond,
                           left.count() % kNanosecondsPerSecond};
    const bool isForEver = milliseconds == kForEver;
    isOver = (!isForEver && left.count() <= 0) ||
             ppoll(&stop, 1, isForEver ? nullptr : &time, nullptr) == 1;
  }
}

}  // namespace platform::clock
