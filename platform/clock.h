// Time.
#pragma once

#include <cstdint>

namespace platform::clock {

// Now, in units of 100 nanoseconds since 1970-01-01 00:00 UTC.
std::int64_t NowTicks();
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
// From 1601-01-01, where the times of files and of the registry begin.
inline constexpr std::int64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;
// Now, counted from there.
inline std::uint64_t FileTimeNow() {
  return static_cast<std::uint64_t>(kTicksFrom1601To1970 + NowTicks());
}

struct LocalTime {
  int year;   // 2026
  int month;  // 1 to 12
  int day;    // 1 to 31
  int hour;   // 0 to 23
  int minute;
  int second;
};

// The local time of a moment, given in seconds since 1970.
LocalTime ToLocalTime(std::int64_t seconds);

// Milliseconds since the system started, as GetTickCount: wraps after 49.7 days.
std::uint32_t TickCount();

// The same from the timer that counts every millisecond, as timeGetTime.
std::uint32_t TimerMilliseconds();

// Waits. A negative number counts as its unsigned 32-bit form, as Sleep takes it; 4294967295 is for
// ever. Ends early when the program is asked to stop (stop_request.h): loops that wait for
// something look there too.
void Sleep(std::uint32_t milliseconds);

}  // namespace platform::clock
