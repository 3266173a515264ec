// The flow of a script and the road that a run took, as a part of a page.
#pragma once

#include <cstddef>
#include <string>

#include "tools/tlx/flow_road.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// With more commands than that a script gets no picture.
inline constexpr std::size_t kMostDrawn = 2000;

// An element 'svg', painted by the page's style: a box for each command, which is a link to its
// line, "#L12", as far as the page has it; and the edges that EdgesOf gives. `failedLine` is that
// of the command that failed last, or 0.
std::string SvgOf(const ScriptFlow& flow, const FlowRoad& road, std::size_t linesOnPage,
                  std::size_t failedLine);

}  // namespace tlx
