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

ExpiryResult Check(std::int64_t created, const std::string& expires) {
  TiXmlDocument document;
  document.Parse(("<header><property name='created' value='" + std::to_string(created) +
                  "'/><property name='expires' value='" + expires + "'/></header>")
                     .c_str());
  return CheckPatchExpiry(document.RootElement(), kNow * platform::clock::kTicksPerSecond);
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
      {kNow, "24856", true, kNow + 2147558400 - 4294967296},
      {0, "30000", true, 30000 * kDay - 4294967296},
  };
  for (const auto& example : kCases) {
    const ExpiryResult result = Check(example.created, example.expires);
    EXPECT_EQ(result.valid, example.isValid) << example.expires;
    EXPECT_EQ(result.expiresAt, example.expiresAt) << example.expires;
  }
  TiXmlDocument update;
  update.Parse("<header><property name='patchType' value='update'/></header>");
  EXPECT_EQ(CheckPatchExpiry(update.RootElement(), 0).expiresAt, 0);
  // Products that leave their range are defined: the sanitizers watch this one.
  Check(std::numeric_limits<std::int64_t>::min(), "2147483647");
}

}  // namespace
}  // namespace tessel
