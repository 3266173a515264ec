// Which loops of a script a run may begin more than once.
#pragma once

#include "support/containers.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// For each command of the flow whether it is a loop that a run may come to again when the loop has
// ended by itself: from a loop around it, or by a jump back. Takes time and memory that grow with
// the script, and no recursion.
cvn::List<bool> FindLoopsBegunAgain(const ScriptFlow& flow);

}  // namespace tlx
