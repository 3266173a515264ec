// The run of the program, from start to exit code.
#pragma once

#include <cstdint>

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// Runs the patch that the command line names; the first argument is the program. Gives the
// process's exit code: a positive reason when the patch was refused, zero or a negative number when
// its script ran. For main, which gives the host platform::stop::EndStatus of it.
std::int32_t RunPatch(const cvn::List<cvn::String>& arguments);

}  // namespace tessel
