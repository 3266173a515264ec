// A clock in the test's hands, linked in place of the platform's: time stands still, except that a
// sleep moves it on without waiting.
#pragma once

#include <cstdint>
#include <vector>

namespace platform::test {

// The milliseconds of each sleep since the last call.
std::vector<std::uint32_t> TakeSleeps();

}  // namespace platform::test
