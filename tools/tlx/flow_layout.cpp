#include "tools/tlx/flow_layout.h"

#include <algorithm>

namespace tlx {
namespace {

constexpr int kMargin = 8;
constexpr int kRow = 36;
constexpr int kCaption = 16;
// What is nested deeper is drawn no further to the right.
constexpr int kDeepest = 10;
// Where there are more, edges share the last one.
constexpr int kMostLanes = 20;

class LayoutMaker {
 public:
  LayoutMaker(const ScriptFlow& flow, const cvn::List<RoadEdge>& edges)
      : flow_(flow), edges_(edges) {}

  FlowLayout Make() {
    PlaceCommands();
    for (const RoadEdge& road : edges_) {
      layout_.hasEnd = layout_.hasEnd || road.edge.to == kNoCommand;
      layout_.hasFallback = layout_.hasFallback || road.edge.to == kAnyFallback;
    }
    if (layout_.hasFallback) {
      layout_.fallback = NextBox(0);
    }
    if (layout_.hasEnd) {
      layout_.end = NextBox(0);
    }
    layout_.height = top_;
    PlaceLanes();
    return std::move(layout_);
  }

 private:
  struct Lane {
    std::size_t target;
    int top;
    int bottom;
  };

  FlowBox NextBox(int depth) {
    const FlowBox box{kMargin + std::min(depth, kDeepest) * FlowLayout::kIndent, top_};
    top_ += kRow;
    return box;
  }

  void PlaceCommands() {
    top_ = 2 * kMargin;
    cvn::List<int> depths;
    for (const FlowCommand& command : flow_.Commands()) {
      const FlowList& list = flow_.Lists()[command.list];
      const bool isNested = list.owner != kNoCommand;
      depths.push_back(isNested ? depths[list.owner] + 1 : 0);
      int caption = 0;
      if (isNested && list.first == layout_.boxes.size() &&
          flow_.Commands()[list.owner].loop == tessel::LoopKind::None) {
        caption = top_ + kCaption / 2;
        top_ += kCaption;
      }
      layout_.boxes.push_back(NextBox(depths.back()));
      layout_.boxes.back().caption = caption;
    }
  }

  // All that leads to one target shares a lane; the shorter ones are nearer to the boxes.
  void PlaceLanes() {
    cvn::Map<std::size_t, Lane> byTarget;
    for (const RoadEdge& road : edges_) {
      if (UsesLane(road)) {
        const int from = layout_.BoxOf(road.from).Middle();
        const int to = layout_.BoxOf(road.edge.to).Middle();
        const auto [at, isNew] = byTarget.try_emplace(road.edge.to, Lane{road.edge.to, to, to});
        at->second.top = std::min(at->second.top, from);
        at->second.bottom = std::max(at->second.bottom, from);
      }
    }
    cvn::List<Lane> wanted;
    for (const auto& [target, lane] : byTarget) {
      wanted.push_back(lane);
    }
    std::ranges::stable_sort(wanted, {}, [](const Lane& lane) { return lane.bottom - lane.top; });
    cvn::List<cvn::List<Lane>> lanes;
    for (const Lane& lane : wanted) {
      std::size_t at = 0;
      while (at < lanes.size() && at + 1 < kMostLanes && !IsFree(lanes[at], lane)) {
        ++at;
      }
      lanes.resize(std::max(lanes.size(), at + 1));
      lanes[at].push_back(lane);
      layout_.laneOf[lane.target] = static_cast<int>(at);
    }
    layout_.lanes = static_cast<int>(lanes.size());
  }

  static bool IsFree(const cvn::List<Lane>& taken, const Lane& lane) {
    return std::ranges::none_of(taken, [&](const Lane& other) {
      return lane.top <= other.bottom && other.top <= lane.bottom;
    });
  }

  const ScriptFlow& flow_;
  const cvn::List<RoadEdge>& edges_;
  FlowLayout layout_;
  int top_ = 0;
};

}  // namespace

FlowLayout LayOut(const ScriptFlow& flow, const cvn::List<RoadEdge>& edges) {
  return LayoutMaker(flow, edges).Make();
}

}  // namespace tlx
