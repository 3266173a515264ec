#include "platform/clock.h"

#include <sched.h>

#include <cerrno>
#include <ctime>
#include <limits>

namespace platform::clock {
namespace {

constexpr long kNanosecondsPerTick = 100;
constexpr long kNanosecondsPerMillisecond = 1'000'000;
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
  timespec until = Read(CLOCK_MONOTONIC);
  until.tv_sec += milliseconds / 1000;
  until.tv_nsec += static_cast<long>(milliseconds % 1000) * kNanosecondsPerMillisecond;
  if (until.tv_nsec >= kNanosecondsPerSecond) {
    ++until.tv_sec;
    until.tv_nsec -= kNanosecondsPerSecond;
  }
  if (milliseconds == kForEver) {
    until = {std::numeric_limits<time_t>::max(), 0};
  }
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

}  // namespace platform::clock
