// The flow of a script as a picture.
#pragma once

#include <string>

#include "tools/tlx/script_flow.h"

namespace tlx {

// A graph in the language of Graphviz, in UTF-8: a node for each command, and an edge for each that
// may follow it. Its size grows with the script's.
std::string DotOf(const ScriptFlow& flow);

}  // namespace tlx
