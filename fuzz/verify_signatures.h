// What the targets with signatures share.
#pragma once

#include <cstddef>
#include <span>

namespace tessel::fuzz {

// Verifies every signature of a file with these bytes, on a machine that trusts each root that came
// along with one: so a mutated signature is followed as far as it holds.
void VerifySignatures(std::span<const std::byte> bytes);

}  // namespace tessel::fuzz
