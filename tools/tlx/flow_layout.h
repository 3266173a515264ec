// Where the parts of a flow stand in a picture that has one command below the other, in the order
// of the script; what is in a handler or a loop further to the right.
#pragma once

#include <cstddef>

#include "support/containers.h"
#include "tools/tlx/flow_road.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// In pixels of CSS, from the upper left corner.
struct FlowBox {
  int left = 0;
  int top = 0;
  int caption = 0;  // the base line of the list's name above its first command; 0 for none

  static constexpr int kHeight = 26;
  int Middle() const { return top + kHeight / 2; }
  int Bottom() const { return top + kHeight; }
};

struct FlowLayout {
  static constexpr int kRight = 720;  // of all boxes
  static constexpr int kIndent = 24;

  cvn::List<FlowBox> boxes;  // of the commands
  FlowBox fallback;          // stands for the targets of all onErrorGoTo
  FlowBox end;               // stands for the end of the script
  bool hasFallback = false;
  bool hasEnd = false;
  int height = 0;
  int lanes = 0;                      // beside the boxes, for what leads from one to another
  cvn::Map<std::size_t, int> laneOf;  // by the target that it leads to

  const FlowBox& BoxOf(std::size_t index) const {
    return index == kNoCommand ? end : index == kAnyFallback ? fallback : boxes[index];
  }
};

// Whether an edge is drawn in a lane.
inline bool UsesLane(const RoadEdge& road) {
  return road.edge.kind == FlowEdge::Kind::Jump || road.edge.kind == FlowEdge::Kind::Fallback;
}

FlowLayout LayOut(const ScriptFlow& flow, const cvn::List<RoadEdge>& edges);

}  // namespace tlx
