// Reading the patch file.
#pragma once

#include <string>

#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// What an empty file gives.
inline constexpr platform::Code kInvalidScriptFile = 1006;

// Reads the whole file at `path`, which others can't write meanwhile. Success, the platform's code
// for the failure, or kInvalidScriptFile.
platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes);

}  // namespace tessel
