// The registry of a new machine.
#pragma once

#include <string>

#include "platform/error.h"
#include "platform/machine.h"

namespace platform::posix {

// Writes the hives of a machine whose folders are made; `folder` is its own, as the host names it.
Code WriteNewRegistry(const std::string& folder, const machine::Description& description);

}  // namespace platform::posix
