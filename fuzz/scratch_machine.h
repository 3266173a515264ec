// A machine of the process's own, in a temporary folder that goes when the process ends well.
//
// What is fuzzed must not be able to touch the host's files: a target with this machine hands the
// code under test no path but those below kFolder.
#pragma once

#include <string>
#include <string_view>

#include "support/string.h"

namespace tessel::fuzz {

// The folder on drive C: for the files of a target; no backslash at its end.
inline constexpr cvn::StringView kFolder = u"C:\\Fuzz";

// Makes the machine, with all that a machine has. Later calls do nothing.
void MakeScratchMachine();

// The host's name of kFolder.
const std::string& ScratchFolder();

// Writes a file of kFolder.
void WriteScratchFile(const std::string& name, std::string_view bytes);

}  // namespace tessel::fuzz
