// The command line.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace platform::posix {

// The arguments of main as text. No byte of them is lost: a path among them opens the file that it
// names.
cvn::List<cvn::String> ArgumentsOf(int argc, char** argv);

}  // namespace platform::posix
