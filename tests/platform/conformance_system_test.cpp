// The small families: error, clock.

#include <ctime>
#include <thread>

#include "platform/clock.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

TEST(ErrorConformance, EachThreadHasItsOwn) {
  SetLastError(kUntouched);
  Code first = kUntouched;
  std::thread([&] {
    first = LastError();
    SetLastError(0xFFFFFFFF);
  }).join();
  EXPECT_EQ(first, kSuccess);
  EXPECT_NE(LastError(), 0xFFFFFFFF);
}

TEST(ClockConformance, CountsFrom1970AndGivesLocalTime) {
  // Within a day: the system's other clocks may be set meanwhile.
  const std::int64_t seconds = clock::NowTicks() / clock::kTicksPerSecond;
  EXPECT_NEAR(static_cast<double>(seconds), static_cast<double>(std::time(nullptr)), 86'400);
  const std::uint32_t before = clock::TickCount();
  EXPECT_LT(clock::TickCount() - before, 0x8000'0000U) << "it ran backwards";
  for (const std::time_t moment : {std::time_t{951'782'400}, std::time_t{1'721'000'059}}) {
    const clock::LocalTime time = clock::ToLocalTime(moment);
    const std::tm* expected = std::localtime(&moment);
    EXPECT_EQ(time.year, expected->tm_year + 1900);
    EXPECT_EQ(time.month, expected->tm_mon + 1);
    EXPECT_EQ(time.day, expected->tm_mday);
    EXPECT_EQ(time.hour, expected->tm_hour);
    EXPECT_EQ(time.minute, expected->tm_min);
    EXPECT_EQ(time.second, expected->tm_sec);
  }
}

}  // namespace
}  // namespace platform::test
