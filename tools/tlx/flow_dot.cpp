#include "tools/tlx/flow_dot.h"

#include <algorithm>
#include <string_view>

#include "engine/script_command.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;

constexpr std::size_t kLongestLabel = 48;

// Of a command's attributes the first of these tells most about it.
constexpr const char* kTelling[] = {"target", "path", "src", "file",   "dir",   "xpath",
                                    "key",    "name", "var", "handle", "value", "milisec"};

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

// Cut to what fits into a node.
std::string Shortened(std::string_view text) {
  if (text.size() <= kLongestLabel) {
    return std::string(text);
  }
  std::size_t end = kLongestLabel;
  while ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
    --end;
  }
  return std::string(text.substr(0, end)) + "...";
}

std::string Telling(const TiXmlElement& element) {
  if (element.ValueStr() == "test") {
    std::string text(AttributeOf(element, "left"));
    text.append(" ").append(AttributeOf(element, "operator")).append(" ");
    return text.append(AttributeOf(element, "right"));
  }
  for (const char* name : kTelling) {
    const std::string_view value = AttributeOf(element, name);
    if (!value.empty()) {
      return std::string(value);
    }
  }
  return {};
}

class DotWriter {
 public:
  explicit DotWriter(const ScriptFlow& flow) : flow_(flow) {}

  std::string Write() {
    text_ = kHead;
    AddNodes();
    AddEdge("start", flow_.Lists().front().first, "");
    cvn::List<FlowEdge> edges;
    for (std::size_t at = 0; at < flow_.Commands().size(); ++at) {
      flow_.FindEdges(flow_.Commands()[at], &edges);
      for (const FlowEdge& edge : edges) {
        AddEdge(at, edge);
      }
    }
    AddSharedNodes();
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
  void AddEdge(const std::string& from, std::size_t to, std::string_view attributes);
  void AddEdge(std::size_t from, const FlowEdge& edge);
  void AddSharedNodes();

  const ScriptFlow& flow_;
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
  const TiXmlElement& element = *command.element;
  std::string label = element.ValueStr();
  const std::string telling = Telling(element);
  std::string shape;
  if (command.loop != LoopKind::None) {
    shape = ", shape=hexagon";
  } else if (command.record == nullptr) {
    shape = ", color=red";
  } else if (command.record->kind == FunctionKind::ExitResult) {
    const cvn::String code = cvn::Utf8ToWide(AttributeOf(element, "code"));
    label += " " + std::to_string(cvn::ReadInt32(code));
    shape = ", shape=doublecircle";
  } else if (command.record->kind == FunctionKind::BoolResult) {
    shape = ", shape=diamond";
  }
  if (!telling.empty()) {
    label += "\n" + Shortened(telling);
  }
  const std::string_view id = AttributeOf(element, "id");
  if (!id.empty()) {
    label.insert(0, Shortened(id) + ":\n");
  }
  text_ += "  " + NodeOf(index) + " [label=" + Quoted(label) + shape;
  text_ += command.isReached ? "];\n" : ", color=gray, fontcolor=gray];\n";
}

void DotWriter::AddEdge(const std::string& from, std::size_t to, std::string_view attributes) {
  hasEnd_ = hasEnd_ || to == kNoCommand;
  hasFallback_ = hasFallback_ || to == kAnyFallback;
  text_.append("  ").append(from).append(" -> ").append(NodeOf(to));
  text_.append(attributes).append(";\n");
}

void DotWriter::AddEdge(std::size_t from, const FlowEdge& edge) {
  std::string attributes;
  if (edge.kind == FlowEdge::Kind::List && edge.list->element->ValueStr() == tessel::kOnErrorSpec) {
    const std::string_view error = AttributeOf(*edge.list->element, "err");
    attributes = " [label=" + Quoted("onerrorspec " + Shortened(error)) + "]";
  } else if (edge.kind == FlowEdge::Kind::List && flow_.Commands()[from].loop == LoopKind::None) {
    attributes = " [label=" + Quoted(edge.list->element->ValueStr()) + "]";
  } else if (edge.kind == FlowEdge::Kind::Fallback) {
    attributes = " [label=\"onErrorGoTo\", style=dashed]";
  } else if (edge.kind == FlowEdge::Kind::Jump && edge.to == kNoCommand) {
    attributes = " [label=\"no such label\", color=red]";
  }
  AddEdge(NodeOf(from), edge.to, attributes);
}

void DotWriter::AddSharedNodes() {
  // Where it depends on the run which onErrorGoTo was the last, its target is one of all.
  if (hasFallback_) {
    text_ += "  fallback [label=\"last onErrorGoTo\", shape=ellipse, style=dashed];\n";
    for (const std::size_t target : flow_.Fallbacks()) {
      AddEdge("fallback", target, " [style=dashed]");
    }
  }
  if (hasEnd_) {
    text_ += "  end [label=\"-1\", shape=doublecircle];\n";
  }
}

}  // namespace

std::string DotOf(const ScriptFlow& flow) { return DotWriter(flow).Write(); }

}  // namespace tlx
