// What the values of the registry are as texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/registry.h"
#include "support/string.h"

namespace tessel {

using RegistryBytes = std::vector<std::byte>;

// The text that a stored value gives. A binary value gives a failure (1630) with its text.
platform::Code TextOfValue(std::uint32_t type, RegistryBytes data,
                           std::optional<cvn::String>* text);

// The bytes to store for the text that a script gives.
platform::Code BytesOfText(std::uint32_t type, cvn::StringView text, RegistryBytes* data);

}  // namespace tessel
