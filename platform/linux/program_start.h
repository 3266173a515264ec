// What each program does first.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace platform::posix {

// Opens the standard streams that the caller closed on the null device. Sees to it that no other
// account can write what this process and its children make, whatever file mode creation mask the
// caller left. Gives the arguments of main as text; no byte of them is lost: a path among them
// opens the file that it names.
cvn::List<cvn::String> StartProgram(int argc, char** argv);

}  // namespace platform::posix
