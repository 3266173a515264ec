// The process's environment variables. Names are found without regard to case.
//
// On Linux the variables that Windows sets (SystemRoot, SystemDrive, windir, ProgramData,
// ALLUSERSPROFILE, ProgramFiles, "ProgramFiles(x86)", CommonProgramFiles, ProgramW6432, PUBLIC,
// USERPROFILE, TEMP, TMP, ComSpec, OS, PATHEXT and the like) have the machine's values; all others
// are the host's. Changes show in what this layer answers and in what it starts.
#pragma once

#include <optional>

#include "platform/error.h"
#include "support/string.h"

namespace platform::environment {

// The value of a variable, or nothing when there is none of that name.
std::optional<cvn::String> Get(cvn::StringView name);

// Sets a variable, as SetEnvironmentVariableW. 87 for a name that is empty or holds '='.
Code Set(cvn::StringView name, cvn::StringView value);

// Replaces each %name% by the variable's value, as ExpandEnvironmentStringsW: a reference to an
// unknown variable stays as it is. Nothing when the platform fails, with the last error set.
std::optional<cvn::String> Expand(cvn::StringView text);

}  // namespace platform::environment
