// The flow of a script as a picture.
#pragma once

#include <string>

#include "tools/tlx/flow_road.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// A graph in the language of Graphviz, in UTF-8: a node for each command, and an edge for each that
// may follow it. Its size grows with the script's. A road, if there is one, is painted: what was
// entered is filled and has its count, the rest is dotted.
std::string DotOf(const ScriptFlow& flow, const FlowRoad* road = nullptr);

}  // namespace tlx
