#include "engine/patch_expiry.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "platform/clock.h"

namespace tessel {
namespace {

constexpr std::int64_t kNow = 1'800'000'000;  // seconds
constexpr std::int64_t kDay = 86400;

ExpiryResult Check(const std::string& properties, std::int64_t now = kNow) {
  TiXmlDocument document;
  document.Parse(("<header>" + properties + "</header>").c_str());
  return CheckPatchExpiry(document.RootElement(), now * platform::clock::kTicksPerSecond);
}

std::string Property(const std::string& name, const std::string& value) {
  return "<property name='" + name + "' value='" + value + "'/>";
}

std::string Dates(std::int64_t created, const std::string& expires) {
  return Property("created", std::to_string(created)) + Property("expires", expires);
}

TEST(PatchExpiry, FollowsTheHeader) {
  const struct {
    const char* name;
    std::string properties;
    bool valid;
    std::int64_t expiresAt;
  } kCases[] = {
      {"within its days", Dates(kNow - 29 * kDay, "30"), true, kNow + kDay},
      {"beyond its days", Dates(kNow - 31 * kDay, "30"), false, kNow - kDay},
      {"exactly at its limit", Dates(kNow - 30 * kDay, "30"), true, kNow},
      {"none means 90", Property("created", std::to_string(kNow - 89 * kDay)), true, kNow + kDay},
      {"0 means 90", Dates(kNow - 91 * kDay, "0"), false, kNow - kDay},
      {"junk means 90", Dates(kNow - 89 * kDay, "soon"), true, kNow + kDay},
      {"negative days", Dates(kNow, "-1"), false, kNow - kDay},
      {"from the future", Dates(kNow + 1, "30"), false, 0},
      {"an update", Dates(0, "1") + Property("patchType", "update"), true, 0},
      {"nearly an update", Dates(0, "1") + Property("patchType", "Update"), false, kDay},
      {"no dates", "", false, 90 * kDay},
      {"the last of two counts", Dates(0, "1") + Dates(kNow, "2"), true, kNow + 2 * kDay},
      {"names with case", Property("Created", std::to_string(kNow)), false, 90 * kDay},
      // The stored moment wraps at 32 bits, while the decision counts whole days.
      {"last day without overflow", Dates(kNow, "24855"), true, kNow + 2147472000},
      {"first day of overflow", Dates(kNow, "24856"), true, kNow + 2147558400 - 4294967296},
      {"overflow beyond", Dates(0, "30000"), true, 30000 * kDay - 4294967296},
  };
  for (const auto& testCase : kCases) {
    const ExpiryResult result = Check(testCase.properties);
    EXPECT_EQ(result.valid, testCase.valid) << testCase.name;
    EXPECT_EQ(result.expiresAt, testCase.expiresAt) << testCase.name;
  }
  // Products that leave their range must be defined: the sanitizers watch this one.
  Check(Dates(std::numeric_limits<std::int64_t>::min(), "2147483647"));
  EXPECT_FALSE(CheckPatchExpiry(nullptr, kNow * platform::clock::kTicksPerSecond).valid);
}

// At 1000 days, 32-bit floats are about 5 seconds apart; the age in ticks loses more before the
// division.
TEST(PatchExpiry, HasTheGrainOfSinglePrecision) {
  const std::int64_t created = kNow - 1000 * kDay;
  EXPECT_TRUE(Check(Dates(created, "1000"), kNow + 1).valid) << "one second is below the grain";
  EXPECT_FALSE(Check(Dates(created, "1000"), kNow + kDay / 2).valid);
}

}  // namespace
}  // namespace tessel
