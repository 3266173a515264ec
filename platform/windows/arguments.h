// The command line.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace platform::windows {

// The arguments that wmain gets, the program's own name included.
cvn::List<cvn::String> ArgumentsOf(int argc, wchar_t** argv);

}  // namespace platform::windows
