// The small families: error, clock, random, version.

#include <ctime>
#include <thread>

#include "platform/clock.h"
#include "platform/random.h"
#include "platform/version.h"
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
  EXPECT_EQ(LastError(), kUntouched);
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

TEST(RandomConformance, EveryBitVaries) {
  std::uint32_t ones = 0;
  std::uint32_t zeros = 0;
  for (int i = 0; i < 256; ++i) {
    const std::uint32_t value = SecureRandom32();
    ones |= value;
    zeros |= ~value;
  }
  EXPECT_EQ(ones & zeros, 0xFFFFFFFFU);
}

TEST(VersionConformance, IsSomeWindows) {
  SetLastError(kUntouched);
  const std::optional<version::WindowsVersion> version = version::Get();
  ASSERT_TRUE(version);
  EXPECT_GE(version->major, 6U);
  EXPECT_TRUE(version::IsBuildAtLeast(6000));
  EXPECT_FALSE(version::IsBuildAtLeast(0xFFFFFFFF));
  const std::uint16_t machine = version::NativeMachine().value_or(version::kMachineAmd64);
  EXPECT_TRUE(machine == version::kMachineAmd64 || machine == version::kMachineArm64) << machine;
  EXPECT_EQ(LastError(), kUntouched);
}

}  // namespace
}  // namespace platform::test
