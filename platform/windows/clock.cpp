#include "platform/clock.h"

#include "platform/windows/stop_event.h"
#include "platform/windows/wide.h"
// After <windows.h>, which it needs.
#include <mmsystem.h>

namespace platform::clock {
namespace {

// From 1601-01-01, where the time of Windows begins, to 1970-01-01.
constexpr std::int64_t kTicksTo1970 = 11'644'473'600 * kTicksPerSecond;

FILETIME FileTimeOf(std::int64_t ticks) {
  const auto value = static_cast<std::uint64_t>(ticks);
  return {static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
}

}  // namespace

std::int64_t NowTicks() {
  // Windows 7 has only the coarse clock.
  static const auto getTime = [] {
    windows::LastErrorKeeper lastError;
    auto* precise = windows::FindFunction<decltype(::GetSystemTimeAsFileTime)>(
        "kernel32.dll", "GetSystemTimePreciseAsFileTime");
    return precise != nullptr ? precise : &::GetSystemTimeAsFileTime;
  }();
  FILETIME time;
  getTime(&time);
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return static_cast<std::int64_t>(ticks) - kTicksTo1970;
}

LocalTime ToLocalTime(std::int64_t seconds) {
  const FILETIME fileTime = FileTimeOf(seconds * kTicksPerSecond + kTicksTo1970);
  SYSTEMTIME universal{};
  SYSTEMTIME local{};
  ::FileTimeToSystemTime(&fileTime, &universal);
  // With the time zone's rules of that moment, where FileTimeToLocalFileTime takes today's.
  ::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local);
  return {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond};
}

std::uint32_t TickCount() { return ::GetTickCount(); }

std::uint32_t TimerMilliseconds() { return ::timeGetTime(); }

void Sleep(std::uint32_t milliseconds) {
  windows::LastErrorKeeper lastError;
  const HANDLE stopEvent = windows::StopEvent();
  if (stopEvent == nullptr || milliseconds == 0) {
    ::Sleep(milliseconds);
  } else {
    ::WaitForSingleObject(stopEvent, milliseconds);
  }
}

}  // namespace platform::clock
