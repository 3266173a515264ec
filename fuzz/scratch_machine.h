// A machine for this process, in a temporary folder that is removed when the process ends normally.
// A fuzzer that is linked to it has it before the first input.
//
// Fuzzed code must not touch the host's files: a fuzzer with this machine passes the code under
// test no paths but those below kFolder.
#pragma once

#include <string>
#include <string_view>

#include "support/string.h"

namespace tessel::fuzz {

// The folder on drive C: for a fuzzer's files, without a backslash at its end.
inline constexpr cvn::StringView kFolder = u"C:\\Fuzz";

// The host path of kFolder.
const std::string& ScratchFolder();

// Writes a file in kFolder.
void WriteScratchFile(const std::string& name, std::string_view bytes);

}  // namespace tessel::fuzz
