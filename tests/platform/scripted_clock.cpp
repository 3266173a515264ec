#include "tests/platform/scripted_clock.h"

#include <utility>

#include "platform/clock.h"

namespace platform::test {
namespace {

std::vector<std::uint32_t> sleeps;
std::int64_t nowTicks = 1'800'000'000 * clock::kTicksPerSecond;

}  // namespace

std::vector<std::uint32_t> TakeSleeps() { return std::exchange(sleeps, {}); }

}  // namespace platform::test

namespace platform::clock {

std::int64_t NowTicks() { return test::nowTicks; }

LocalTime ToLocalTime(std::int64_t /*seconds*/) { return {2027, 1, 15, 8, 0, 0}; }

std::uint32_t TickCount() {
  return static_cast<std::uint32_t>(test::nowTicks / (kTicksPerSecond / 1000));
}

std::uint32_t TimerMilliseconds() { return TickCount(); }

void Sleep(std::uint32_t milliseconds) {
  test::sleeps.push_back(milliseconds);
  test::nowTicks += milliseconds * (kTicksPerSecond / 1000);
}

}  // namespace platform::clock
