#include "tests/commands/scripted_clock.h"

#include "platform/clock.h"

namespace tessel::testing {
namespace {

constexpr std::int64_t kStart = 1'800'000'000;  // in seconds since 1970

std::vector<std::uint32_t> pauses;
std::uint32_t passed = 0;  // milliseconds

}  // namespace

const std::vector<std::uint32_t>& Pauses() { return pauses; }
void ResetPauses() { pauses.clear(); }

}  // namespace tessel::testing

namespace platform::clock {

std::int64_t NowTicks() {
  return tessel::testing::kStart * kTicksPerSecond +
         tessel::testing::passed * (kTicksPerSecond / 1000);
}
LocalTime ToLocalTime(std::int64_t /*seconds*/) { return {2027, 1, 15, 8, 0, 0}; }
std::uint32_t TickCount() { return tessel::testing::passed; }
std::uint32_t TimerMilliseconds() { return TickCount(); }

void Sleep(std::uint32_t milliseconds) {
  tessel::testing::pauses.push_back(milliseconds);
  tessel::testing::passed += milliseconds;
}

}  // namespace platform::clock
