// How long a patch stays valid.
#pragma once

#include <tinyxml.h>

#include <cstdint>

#include "support/string.h"

namespace tessel {

struct ExpiryResult {
  bool valid;
  std::int64_t expiresAt;  // seconds since 1970; 0 when the check did not get that far
  std::int64_t madeAt;     // likewise, as the header has it
};

// Judges the dates in the `property` children of `header` at the moment `nowTicks` (100-nanosecond
// units since 1970). `created` counts in seconds since 1970, `expires` in days, of which 0 or none
// means 90. A patch of the type "update" is always valid, one from the future never. A null
// `header` has no dates, which makes it older than any limit.
//
// The days left are computed in 32-bit floating point, with a grain of some hours, and the stored
// moment by a 32-bit product; both are what the makers of patches count on.
ExpiryResult CheckPatchExpiry(const TiXmlElement* header, std::int64_t nowTicks);

}  // namespace tessel
