// The road that a run took through the flow of a script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "support/containers.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// From one command to the one that was entered after it, by their indexes in ScriptFlow;
// kNoCommand for the start of the script, and for the end of the run.
using FlowStep = std::pair<std::size_t, std::size_t>;

struct FlowRoad {
  cvn::List<std::uint64_t> visits;          // how often each command was entered
  cvn::Map<FlowStep, std::uint64_t> steps;  // how often each step was taken
};

struct RoadEdge {
  std::size_t from;  // kNoCommand for the start, kAnyFallback for the target of an onErrorGoTo
  FlowEdge edge;
  std::uint64_t taken;
};

// The edges of a flow: that from the start, those of each command in their order, and those from
// kAnyFallback to its targets; each with how often the road went along it.
cvn::List<RoadEdge> EdgesOf(const ScriptFlow& flow, const FlowRoad& road);

}  // namespace tlx
