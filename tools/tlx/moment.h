// Moments, as a command line and JSON have them. All are milliseconds since 1970 UTC.
#pragma once

#include <cstdint>
#include <optional>

#include "support/string.h"

namespace tlx {

// Reads a date, with a time or without ("2026-11-23", "2026-11-23T21:26", "2026-11-23
// 21:26:02.5Z"), by ISO 8601: with a zone ("Z", "+01:00") it is that zone's, without one this
// computer's. Of a local time that comes twice when clocks are put back, it is the first.
//
// Or a duration in weeks, days, hours, minutes and seconds ("2h", "1d12h"), which ends at `now`.
std::optional<std::int64_t> ReadMoment(cvn::StringView text, std::int64_t now);

// "2026-11-23T21:26:02.123Z"; empty for a moment before 1970 or after 9999.
cvn::String IsoText(std::int64_t moment);

// "2026-11-23 21:26:02", this computer's time.
cvn::String LocalText(std::int64_t moment);

}  // namespace tlx
