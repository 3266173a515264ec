#include "engine/patch_expiry.h"

#include "engine/xml_text.h"
#include "platform/clock.h"
#include "support/numbers.h"
#include "trace/trace.h"

namespace tessel {
namespace {

constexpr std::int32_t kDefaultDays = 90;
constexpr std::uint32_t kSecondsPerDay = 86400;
// 864,000,000,000 ticks are a day; this is the 32-bit float nearest to it.
constexpr float kTicksPerDay = 864000016384.0F;

struct PatchDates {
  std::int64_t created = 0;
  std::int32_t days = 0;
  cvn::String patchType;
};

PatchDates ReadDates(const TiXmlElement* header) {
  PatchDates dates;
  const TiXmlElement* property =
      header == nullptr ? nullptr : header->FirstChildElement("property");
  for (; property != nullptr; property = property->NextSiblingElement("property")) {
    const cvn::String name = XmlAttributeText(*property, "name");
    const cvn::String value = XmlAttributeText(*property, "value");
    if (name == u"expires") {
      dates.days = cvn::ReadInt32(value);
    } else if (name == u"created") {
      dates.created = cvn::ReadInt64(value);
    } else if (name == u"patchType") {
      dates.patchType = value;
    }
  }
  return dates;
}

}  // namespace

ExpiryResult CheckPatchExpiry(const TiXmlElement* header, std::int64_t nowTicks) {
  PatchDates dates = ReadDates(header);
  if (dates.patchType == u"update") {
    return {true, 0, dates.created};
  }
  if (nowTicks / platform::clock::kTicksPerSecond < dates.created) {
    return {false, 0, dates.created};
  }
  if (dates.days == 0) {
    TraceLine(u"Use default value for expirationDays.");
    dates.days = kDefaultDays;
  }
  // Signed products that may leave their range are computed unsigned, where wrapping is defined.
  const auto validSeconds =
      static_cast<std::int32_t>(static_cast<std::uint32_t>(dates.days) * kSecondsPerDay);
  const auto created = static_cast<std::uint64_t>(dates.created);
  const auto expiresAt =
      static_cast<std::int64_t>(created + static_cast<std::uint64_t>(validSeconds));
  const auto age =
      static_cast<std::int64_t>(static_cast<std::uint64_t>(nowTicks) -
                                created * std::uint64_t{platform::clock::kTicksPerSecond});
  const float daysLeft = static_cast<float>(dates.days) - static_cast<float>(age) / kTicksPerDay;
  return {!(daysLeft < 0), expiresAt, dates.created};
}

}  // namespace tessel
