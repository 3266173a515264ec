// What of a patch's dates no run of a script can show: exact moments.
#include "engine/patch_expiry.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "platform/clock.h"

namespace tessel {
namespace {

constexpr std::int64_t kNow = 1'800'000'000;  // seconds
constexpr std::int64_t kDay = 86400;

ExpiryResult Check(std::int64_t created, const std::string& expires, std::int64_t now = kNow) {
  TiXmlDocument document;
  document.Parse(("<header><property name='created' value='" + std::to_string(created) +
                  "'/><property name='expires' value='" + expires + "'/></header>")
                     .c_str());
  return CheckPatchExpiry(document.RootElement(), now * platform::clock::kTicksPerSecond);
}

TEST(PatchExpiry, TellsTheMomentAndEndsBehindIt) {
  const struct {
    std::int64_t created;
    const char* expires;
    bool isValid;
    std::int64_t expiresAt;
  } kCases[] = {
      {kNow - 30 * kDay, "30", true, kNow},
      {kNow - 31 * kDay, "30", false, kNow - kDay},
      {kNow + 1, "30", false, 0},
      // The stored moment wraps at 32 bits, while the decision counts whole days.
      {kNow, "24855", true, kNow + 2147472000},
      {kNow, "24856", true, kNow + 2147558400 - 4294967296},
      {0, "30000", true, 30000 * kDay - 4294967296},
  };
  for (const auto& example : kCases) {
    const ExpiryResult result = Check(example.created, example.expires);
    EXPECT_EQ(result.valid, example.isValid) << example.expires;
    EXPECT_EQ(result.expiresAt, example.expiresAt) << example.expires;
  }
  // Products that leave their range are defined: the sanitizers watch this one.
  Check(std::numeric_limits<std::int64_t>::min(), "2147483647");
  EXPECT_FALSE(CheckPatchExpiry(nullptr, kNow * platform::clock::kTicksPerSecond).valid);
}

// At 1000 days, 32-bit floats are about 5 seconds apart; the age in ticks loses more before the
// division.
TEST(PatchExpiry, HasTheGrainOfSinglePrecision) {
  const std::int64_t created = kNow - 1000 * kDay;
  EXPECT_TRUE(Check(created, "1000", kNow + 1).valid) << "one second is below the grain";
  EXPECT_FALSE(Check(created, "1000", kNow + kDay / 2).valid);
}

}  // namespace
}  // namespace tessel
