// The times of the host's files as Windows numbers them: 100 ns since 1601.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

#include "platform/clock.h"

namespace platform::posix {

// What is finer is cut; a time before 1601 is 0.
inline std::uint64_t FileTimeOf(const timespec& time) {
  const std::int64_t ticks =
      time.tv_sec * clock::kTicksPerSecond + time.tv_nsec / 100 + clock::kTicksFrom1601To1970;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(ticks, 0));
}

// Split before the shift to 1970, so that what is left of a second is never negative.
inline timespec TimeOf(std::uint64_t fileTime) {
  constexpr auto kTicksPerSecond = static_cast<std::uint64_t>(clock::kTicksPerSecond);
  constexpr std::int64_t kShift = clock::kTicksFrom1601To1970 / clock::kTicksPerSecond;
  return {.tv_sec = static_cast<std::int64_t>(fileTime / kTicksPerSecond) - kShift,
          .tv_nsec = static_cast<std::int64_t>(fileTime % kTicksPerSecond * 100)};
}

}  // namespace platform::posix
