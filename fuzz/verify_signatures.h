// Shared by the fuzzers of signatures.
#pragma once

#include <cstddef>
#include <span>

namespace tessel::fuzz {

// Verifies every signature of a file with these bytes. The machine trusts each root that a
// signature brings along, so that a mutated signature is followed as far as it is valid.
void VerifySignatures(std::span<const std::byte> bytes);

}  // namespace tessel::fuzz
