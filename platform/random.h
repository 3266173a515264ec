// Random numbers fit for secrets.
#pragma once

#include <cstdint>

namespace platform {

// 32 bits from the platform's secure random source, as rand_s.
std::uint32_t SecureRandom32();

}  // namespace platform
