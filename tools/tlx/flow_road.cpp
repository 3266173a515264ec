#include "tools/tlx/flow_road.h"

#include <algorithm>

namespace tlx {
namespace {

class EdgeLister {
 public:
  EdgeLister(const ScriptFlow& flow, const FlowRoad& road) : flow_(flow), steps_(road.steps) {}

  cvn::List<RoadEdge> List() {
    Add(kNoCommand, {FlowEdge::Kind::Sequence, flow_.Lists().front().first});
    cvn::List<FlowEdge> edges;
    for (std::size_t at = 0; at < flow_.Commands().size(); ++at) {
      flow_.FindEdges(flow_.Commands()[at], &edges);
      AddAll(at, edges);
    }
    if (hasFallback_) {
      for (const std::size_t target : flow_.Fallbacks()) {
        const auto found = fallbacks_.find(target);
        edges_.push_back({kAnyFallback,
                          {FlowEdge::Kind::Fallback, target},
                          found == fallbacks_.end() ? 0 : found->second});
      }
    }
    return std::move(edges_);
  }

 private:
  void AddAll(std::size_t from, const cvn::List<FlowEdge>& edges) {
    for (const FlowEdge& edge : edges) {
      if (edge.to != kAnyFallback) {
        Add(from, edge);
      }
    }
    // What no other edge explains went to the target of some onErrorGoTo.
    for (const FlowEdge& edge : edges) {
      if (edge.to == kAnyFallback) {
        hasFallback_ = true;
        edges_.push_back({from, edge, TakeFallbacks(from, edges)});
      }
    }
  }

  void Add(std::size_t from, const FlowEdge& edge) {
    const auto step = steps_.find(FlowStep(from, edge.to));
    edges_.push_back({from, edge, step == steps_.end() ? 0 : step->second});
  }

  std::uint64_t TakeFallbacks(std::size_t from, const cvn::List<FlowEdge>& edges) {
    std::uint64_t taken = 0;
    auto step = steps_.lower_bound(FlowStep(from, 0));
    for (; step != steps_.end() && step->first.first == from; ++step) {
      const std::size_t to = step->first.second;
      if (std::ranges::find(edges, to, &FlowEdge::to) == edges.end()) {
        taken += step->second;
        fallbacks_[to] += step->second;
      }
    }
    return taken;
  }

  const ScriptFlow& flow_;
  const cvn::Map<FlowStep, std::uint64_t>& steps_;
  cvn::List<RoadEdge> edges_;
  cvn::Map<std::size_t, std::uint64_t> fallbacks_;  // by target
  bool hasFallback_ = false;
};

}  // namespace

cvn::List<RoadEdge> EdgesOf(const ScriptFlow& flow, const FlowRoad& road) {
  return EdgeLister(flow, road).List();
}

}  // namespace tlx
