// The certificates that a system knows.
#pragma once

#include <cstdint>
#include <string>

namespace platform::test {

// Puts what is encoded into the system's stores, by way of the registry: a certificate (property
// 32) or a revocation list (33), at a place such as "ROOT\\Certificates".
void AddToStore(const char* place, std::uint32_t property, const std::string& encoded);

}  // namespace platform::test
