// The transfer of a download, which each platform does in its own way.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "support/string.h"

namespace platform {

// A code as an HRESULT; 0 stays 0.
constexpr std::int32_t ResultOf(Code code) {
  return static_cast<std::int32_t>(code == kSuccess ? 0 : 0x8007'0000 | (code & 0xFFFF));
}

// Fetches `url` into the file at `path`, which is there and empty; after a failure it may hold
// anything. Gives an HRESULT.
std::int32_t Fetch(cvn::StringView url, cvn::StringView path);

}  // namespace platform
