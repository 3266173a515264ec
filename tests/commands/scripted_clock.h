// A clock in the test's hands, linked in place of the platform's: it moves by pauses only, and they
// take no time.
#pragma once

#include <cstdint>
#include <vector>

namespace tessel::testing {

// The pauses since the last reset, in milliseconds.
const std::vector<std::uint32_t>& Pauses();
void ResetPauses();

}  // namespace tessel::testing
