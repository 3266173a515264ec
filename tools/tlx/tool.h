// The patch author's tool.
#pragma once

#include <span>

#include "support/string.h"

namespace tlx {

// Runs the tool. `arguments` are those of the program, without the program itself. Returns the exit
// code.
int RunTool(std::span<const cvn::String> arguments);

}  // namespace tlx
