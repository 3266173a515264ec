// Reading the patch file.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// What an empty file gives.
inline constexpr platform::Code kInvalidScriptFile = 1006;

// Reads the whole file at `path`, which others can't write meanwhile. Success, the platform's code
// for the failure, or kInvalidScriptFile.
platform::Code ReadPatchFile(cvn::StringView path, std::string* bytes);

// The SHA-256 digest of a patch file's bytes in lower-case hexadecimal digits.
cvn::String PatchContentHash(std::string_view bytes);

}  // namespace tessel
