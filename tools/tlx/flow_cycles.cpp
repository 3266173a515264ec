#include "tools/tlx/flow_cycles.h"

#include <algorithm>
#include <utility>

namespace tlx {
namespace {

using tessel::LoopKind;

// Tarjan's search for strongly connected components. A loop has two nodes, one that a run comes to
// from outside and one for each of its rounds, so that the rounds alone don't make it one of a
// cycle. A node more stands for all targets of onErrorGoTo.
class CycleSearch {
 public:
  explicit CycleSearch(const ScriptFlow& flow)
      : flow_(flow), count_(flow.Commands().size()), nodes_(2 * count_ + 1) {}

  cvn::List<bool> Run() {
    cvn::List<bool> isBegunAgain(count_);
    for (std::size_t at = 0; at < count_; ++at) {
      const std::size_t sequel = flow_.Commands()[at].sequel;
      if (IsLoop(at) && sequel != kNoCommand && flow_.Commands()[at].isReached) {
        Search(BeginOf(at));
        isBegunAgain[at] = nodes_[BeginOf(at)].component == nodes_[NodeOf(at, sequel)].component;
      }
    }
    return isBegunAgain;
  }

 private:
  struct Node {
    std::size_t order = 0;   // of its discovery, from 1; 0 before
    std::size_t lowest = 0;  // the first discovered that it leads back to
    bool isOpen = false;     // its component isn't complete
    std::size_t component = 0;
  };
  struct Visit {
    std::size_t node;
    cvn::List<std::size_t> next;  // not looked at yet
  };

  bool IsLoop(std::size_t command) const {
    return flow_.Commands()[command].loop != LoopKind::None;
  }
  std::size_t BeginOf(std::size_t loop) const { return count_ + loop; }
  std::size_t AnyFallback() const { return 2 * count_; }

  // The node of `to` for one that comes from the command `from`.
  std::size_t NodeOf(std::size_t from, std::size_t to) const {
    const bool isInside = from > to && from < flow_.Commands()[to].behind;
    return IsLoop(to) && !isInside ? BeginOf(to) : to;
  }

  cvn::List<std::size_t> NextOf(std::size_t node) {
    if (node == AnyFallback()) {
      return flow_.Fallbacks();
    }
    if (node >= count_) {
      return {node - count_};
    }
    cvn::List<std::size_t> next;
    flow_.FindEdges(flow_.Commands()[node], &edges_);
    for (const FlowEdge& edge : edges_) {
      if (edge.to != kNoCommand) {
        next.push_back(edge.to == kAnyFallback ? AnyFallback() : NodeOf(node, edge.to));
      }
    }
    return next;
  }

  void Open(std::size_t node) {
    ++found_;
    nodes_[node] = {found_, found_, true, 0};
    open_.push_back(node);
    visits_.push_back({node, NextOf(node)});
  }

  void Search(std::size_t start) {
    if (nodes_[start].order != 0) {
      return;
    }
    Open(start);
    while (!visits_.empty()) {
      Visit& visit = visits_.back();
      Node& node = nodes_[visit.node];
      if (visit.next.empty()) {
        Leave();
        continue;
      }
      const std::size_t next = visit.next.back();
      visit.next.pop_back();
      if (nodes_[next].order == 0) {
        Open(next);
      } else if (nodes_[next].isOpen) {
        node.lowest = std::min(node.lowest, nodes_[next].order);
      }
    }
  }

  void Leave() {
    const std::size_t left = visits_.back().node;
    const Node& node = nodes_[left];
    visits_.pop_back();
    if (!visits_.empty()) {
      Node& before = nodes_[visits_.back().node];
      before.lowest = std::min(before.lowest, node.lowest);
    }
    if (node.lowest != node.order) {
      return;
    }
    for (std::size_t closed = kNoCommand; closed != left;) {
      closed = open_.back();
      open_.pop_back();
      nodes_[closed].isOpen = false;
      nodes_[closed].component = node.order;
    }
  }

  const ScriptFlow& flow_;
  std::size_t count_;
  cvn::List<Node> nodes_;
  std::size_t found_ = 0;
  cvn::List<std::size_t> open_;
  cvn::List<Visit> visits_;
  cvn::List<FlowEdge> edges_;
};

}  // namespace

cvn::List<bool> FindLoopsBegunAgain(const ScriptFlow& flow) { return CycleSearch(flow).Run(); }

}  // namespace tlx
