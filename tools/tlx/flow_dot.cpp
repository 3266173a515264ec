#include "tools/tlx/flow_dot.h"

#include <string_view>

#include "tools/tlx/flow_label.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;

constexpr std::size_t kLongestLabel = 48;

constexpr std::string_view kHead =
    "digraph script {\n"
    "  node [shape=box, style=rounded, fontname=\"sans-serif\", fontsize=10];\n"
    "  edge [fontname=\"sans-serif\", fontsize=9];\n"
    "  start [shape=point];\n";

// The text as a string of the language, where only these two characters mean something else than
// themselves: a backslash stays one before the drawing program replaces its escapes.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '\n') {
      quoted += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') {
      quoted += '\\';
    }
    quoted += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
  }
  return quoted + '"';
}

class DotWriter {
 public:
  DotWriter(const ScriptFlow& flow, const FlowRoad* road) : flow_(flow), road_(road) {}

  std::string Write() {
    text_ = kHead;
    AddNodes();
    for (const RoadEdge& edge : EdgesOf(flow_, road_ == nullptr ? FlowRoad() : *road_)) {
      AddEdge(edge);
    }
    if (hasFallback_) {
      // Where it depends on the run which onErrorGoTo was the last, its target is one of all.
      text_ += "  fallback [label=\"last onErrorGoTo\", shape=ellipse, style=dashed];\n";
    }
    if (hasEnd_) {
      text_ += "  end [label=\"-1\", shape=doublecircle];\n";
    }
    return std::move(text_) + "}\n";
  }

 private:
  static std::string NodeOf(std::size_t index) {
    return index == kNoCommand     ? "end"
           : index == kAnyFallback ? "fallback"
                                   : "c" + std::to_string(index);
  }

  void AddNodes();
  void AddNode(std::size_t index);
  std::string PaintOf(std::size_t index) const;
  void AddEdge(const RoadEdge& road);
  std::string LabelOfEdge(const RoadEdge& road) const;

  const ScriptFlow& flow_;
  const FlowRoad* road_;
  std::string text_;
  bool hasFallback_ = false;
  bool hasEnd_ = false;
};

// The commands of a loop follow it, so that its cluster is closed where they end.
void DotWriter::AddNodes() {
  cvn::List<std::size_t> openUntil;
  const auto& commands = flow_.Commands();
  for (std::size_t at = 0; at <= commands.size(); ++at) {
    while (!openUntil.empty() && openUntil.back() == at) {
      text_ += "  }\n";
      openUntil.pop_back();
    }
    if (at == commands.size()) {
      break;
    }
    if (commands[at].loop != LoopKind::None) {
      text_ += "  subgraph cluster_" + std::to_string(at) + " {\n";
      openUntil.push_back(commands[at].behind);
    }
    AddNode(at);
  }
}

void DotWriter::AddNode(std::size_t index) {
  const FlowCommand& command = flow_.Commands()[index];
  std::string label = command.element->ValueStr();
  const std::string telling = TellingOf(command);
  const char* between = "\n";
  std::string shape;
  if (command.loop != LoopKind::None) {
    shape = ", shape=hexagon";
  } else if (command.record == nullptr) {
    shape = ", color=red";
  } else if (command.record->kind == FunctionKind::ExitResult) {
    between = " ";
    shape = ", shape=doublecircle";
  } else if (command.record->kind == FunctionKind::BoolResult) {
    shape = ", shape=diamond";
  }
  if (!telling.empty()) {
    label += between + Shortened(telling, kLongestLabel);
  }
  const std::string_view id = LabelOf(command);
  if (!id.empty()) {
    label.insert(0, Shortened(id, kLongestLabel) + ":\n");
  }
  if (road_ != nullptr && road_->visits[index] != 0) {
    label += "\n" + std::to_string(road_->visits[index]) + " x";
  }
  text_ += "  " + NodeOf(index) + " [label=" + Quoted(label) + shape;
  text_ += command.isReached ? "" : ", color=gray, fontcolor=gray";
  text_ += PaintOf(index) + "];\n";
}

std::string DotWriter::PaintOf(std::size_t index) const {
  if (road_ == nullptr) {
    return {};
  }
  return road_->visits[index] != 0 ? ", style=\"rounded,filled\", fillcolor=lightblue, penwidth=2"
                                   : ", style=\"rounded,dotted\"";
}

std::string DotWriter::LabelOfEdge(const RoadEdge& road) const {
  const FlowEdge& edge = road.edge;
  if (edge.kind == FlowEdge::Kind::List && flow_.Commands()[road.from].loop == LoopKind::None) {
    return Shortened(NameOf(*edge.list), kLongestLabel);
  }
  if (edge.kind == FlowEdge::Kind::Fallback && road.from != kAnyFallback) {
    return "onErrorGoTo";
  }
  return edge.kind == FlowEdge::Kind::Jump && edge.to == kNoCommand ? "no such label" : "";
}

void DotWriter::AddEdge(const RoadEdge& road) {
  const FlowEdge& edge = road.edge;
  hasEnd_ = hasEnd_ || edge.to == kNoCommand;
  hasFallback_ = hasFallback_ || edge.to == kAnyFallback;
  cvn::List<std::string> attributes;
  const std::string label = LabelOfEdge(road);
  if (!label.empty()) {
    attributes.push_back("label=" + Quoted(label));
  }
  if (edge.kind == FlowEdge::Kind::Fallback) {
    attributes.emplace_back("style=dashed");
  } else if (edge.kind == FlowEdge::Kind::Jump && edge.to == kNoCommand) {
    attributes.emplace_back("color=red");
  }
  if (road_ != nullptr && road.taken != 0) {
    attributes.emplace_back("penwidth=3");
  }
  text_ += "  " + (road.from == kNoCommand ? std::string("start") : NodeOf(road.from)) + " -> ";
  text_ += NodeOf(edge.to);
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    text_ += (i == 0 ? " [" : ", ") + attributes[i];
  }
  text_ += attributes.empty() ? ";\n" : "];\n";
}

}  // namespace

std::string DotOf(const ScriptFlow& flow, const FlowRoad* road) {
  return DotWriter(flow, road).Write();
}

}  // namespace tlx
