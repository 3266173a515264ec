#include "tools/tlx/flow_svg.h"

#include <string_view>

#include "tools/tlx/flow_label.h"
#include "tools/tlx/flow_layout.h"
#include "tools/tlx/html_text.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;

constexpr int kLaneWidth = 10;
constexpr int kLeftLine = 9;   // from a box's left side down to what follows or is inside
constexpr int kExitLine = 17;  // beside it, from what is inside down to what follows
constexpr int kCountWidth = 84;
constexpr int kRounding = 4;
constexpr std::size_t kLongestTitle = 300;
constexpr std::size_t kLongestName = 120;  // more than fits

constexpr std::string_view kMarkers =
    "<defs><marker id=\"arrow\" class=\"tip\" viewBox=\"0 0 8 8\" refX=\"7\" refY=\"4\" "
    "markerWidth=\"7\" markerHeight=\"7\" orient=\"auto-start-reverse\" "
    "markerUnits=\"userSpaceOnUse\"><path d=\"M0 0L8 4L0 8z\"/></marker>"
    "<marker id=\"arrow-taken\" class=\"tip taken\" viewBox=\"0 0 8 8\" refX=\"7\" refY=\"4\" "
    "markerWidth=\"9\" markerHeight=\"9\" orient=\"auto-start-reverse\" "
    "markerUnits=\"userSpaceOnUse\"><path d=\"M0 0L8 4L0 8z\"/></marker></defs>\n";

std::string Number(std::string_view name, int value) {
  return std::string(" ").append(name) + "=\"" + std::to_string(value) + "\"";
}

std::string To(char command, int x, int y) {
  return command + std::to_string(x) + " " + std::to_string(y);
}

const char* SignOf(const FlowCommand& command) {
  if (command.loop != LoopKind::None) {
    return "\u21BB ";
  }
  if (command.record == nullptr) {
    return "? ";
  }
  switch (command.record->kind) {
    case FunctionKind::ExitResult:
      return "\u25A0 ";
    case FunctionKind::BoolResult:
      return "\u25C7 ";
    default:
      return "";
  }
}

class SvgWriter {
 public:
  SvgWriter(const ScriptFlow& flow, const FlowRoad& road, std::size_t linesOnPage,
            std::size_t failedLine)
      : flow_(flow),
        road_(road),
        linesOnPage_(linesOnPage),
        failedLine_(failedLine),
        edges_(EdgesOf(flow, road)),
        layout_(LayOut(flow, edges_)) {}

  std::string Write() {
    const int width = FlowLayout::kRight + (layout_.lanes + 2) * kLaneWidth;
    svg_ = "<svg class=\"flow\" role=\"group\" aria-label=\"Flow of the script\"";
    svg_ += Number("width", width) + Number("height", layout_.height);
    svg_ += " viewBox=\"0 0 " + std::to_string(width) + " " + std::to_string(layout_.height);
    svg_ += "\">\n";
    svg_ += kMarkers;
    AddEdges(false);
    AddEdges(true);
    for (std::size_t at = 0; at < flow_.Commands().size(); ++at) {
      AddBox(at);
    }
    if (layout_.hasFallback) {
      AddSharedBox(layout_.fallback, "the last onErrorGoTo");
    }
    if (layout_.hasEnd) {
      AddSharedBox(layout_.end, "the end of the script: exit code -1");
    }
    return std::move(svg_) + "</svg>\n";
  }

 private:
  void AddEdges(bool areTaken);
  std::string PathOf(const RoadEdge& road) const;
  std::string LanePath(const RoadEdge& road) const;
  void AddBox(std::size_t index);
  void AddText(const FlowCommand& command, const FlowBox& box);
  void AddSharedBox(const FlowBox& box, std::string_view text);
  std::string TitleOf(std::size_t index) const;

  const ScriptFlow& flow_;
  const FlowRoad& road_;
  std::size_t linesOnPage_;
  std::size_t failedLine_;
  cvn::List<RoadEdge> edges_;
  FlowLayout layout_;
  std::string svg_;
};

std::size_t LineOf(const FlowCommand& command) {
  return static_cast<std::size_t>(command.element->Row());
}

// What was taken stands over the rest.
void SvgWriter::AddEdges(bool areTaken) {
  svg_ += "<g aria-hidden=\"true\">\n";
  for (const RoadEdge& road : edges_) {
    if ((road.taken != 0) != areTaken) {
      continue;
    }
    svg_ += "<path class=\"edge";
    svg_ += areTaken ? " taken" : "";
    svg_ += road.edge.kind == FlowEdge::Kind::Fallback ? " fallback\"" : "\"";
    svg_ += areTaken ? " marker-end=\"url(#arrow-taken)\"" : " marker-end=\"url(#arrow)\"";
    svg_ += " d=\"" + PathOf(road) + "\"/>\n";
  }
  svg_ += "</g>\n";
}

std::string SvgWriter::LanePath(const RoadEdge& road) const {
  const FlowBox& from = layout_.BoxOf(road.from);
  const FlowBox& to = layout_.BoxOf(road.edge.to);
  const int right = FlowLayout::kRight;
  const int lane = right + (layout_.laneOf.at(road.edge.to) + 2) * kLaneWidth - kRounding;
  const int leaves = from.Middle() + kRounding;
  const int arrives = to.Middle() - kRounding;
  const int turn = leaves < arrives ? kRounding : -kRounding;
  return To('M', right, leaves) + To('L', lane - kRounding, leaves) + To('Q', lane, leaves) +
         To(' ', lane, leaves + turn) + To('L', lane, arrives - turn) + To('Q', lane, arrives) +
         To(' ', lane - kRounding, arrives) + To('L', right, arrives);
}

std::string SvgWriter::PathOf(const RoadEdge& road) const {
  if (UsesLane(road)) {
    return LanePath(road);
  }
  const FlowBox& to = layout_.BoxOf(road.edge.to);
  if (road.from == kNoCommand) {
    return To('M', to.left + kLeftLine, to.top - kRounding * 3) +
           To('L', to.left + kLeftLine, to.top);
  }
  const FlowBox& from = layout_.BoxOf(road.from);
  if (road.edge.kind == FlowEdge::Kind::List) {
    return To('M', from.left + kLeftLine, from.Bottom()) +
           To('L', from.left + kLeftLine, to.Middle()) + To('L', to.left, to.Middle());
  }
  if (from.left == to.left && from.top < to.top) {
    return To('M', from.left + kLeftLine, from.Bottom()) + To('L', to.left + kLeftLine, to.top);
  }
  const int line = to.left + kExitLine;
  return To('M', from.left, from.Middle()) + To('L', line, from.Middle()) +
         To('L', line, from.top < to.top ? to.top : to.Bottom());
}

std::string SvgWriter::TitleOf(std::size_t index) const {
  const FlowCommand& command = flow_.Commands()[index];
  const std::uint64_t visits = road_.visits[index];
  std::string title = "Line " + std::to_string(LineOf(command)) + ": ";
  title += Html(Shortened(command.element->ValueStr() + " " + TellingOf(command), kLongestTitle));
  if (visits == 0) {
    return title + ", never entered";
  }
  title += visits == 1 ? ", entered once" : ", entered " + std::to_string(visits) + " times";
  return title + (LineOf(command) == failedLine_ ? ", failed last" : "");
}

void SvgWriter::AddBox(std::size_t index) {
  const FlowCommand& command = flow_.Commands()[index];
  const FlowBox& box = layout_.boxes[index];
  const std::size_t line = LineOf(command);
  const std::uint64_t visits = road_.visits[index];
  const bool hasFailed = visits != 0 && line == failedLine_;
  if (box.caption != 0) {
    const FlowList& list = flow_.Lists()[command.list];
    svg_ +=
        "<text class=\"caption\"" + Number("x", box.left) + Number("y", box.caption + kRounding);
    svg_ += ">" + Html(Shortened(NameOf(list), kLongestName)) + "</text>\n";
  }
  const bool isLink = line <= linesOnPage_;
  svg_ += isLink ? "<a href=\"#L" + std::to_string(line) + "\"" : "<g";
  svg_ += " class=\"box";
  svg_ += hasFailed ? " failed" : visits == 0 ? " never" : " seen";
  svg_ += "\"><title>" + TitleOf(index) + "</title><rect" + Number("x", box.left);
  svg_ += Number("y", box.top) + Number("width", FlowLayout::kRight - box.left);
  svg_ += Number("height", FlowBox::kHeight) + Number("rx", kRounding) + "/>";
  AddText(command, box);
  svg_ += "<text class=\"count\"" + Number("x", FlowLayout::kRight - 2 * kRounding);
  svg_ += Number("y", box.Middle() + kRounding) + ">";
  svg_ += hasFailed     ? "\u2717 failed"
          : visits == 0 ? "\u25CB never"
                        : "\u2713 " + std::to_string(visits) + "\u00D7";
  svg_ += isLink ? "</text></a>\n" : "</text></g>\n";
}

// In a picture of its own, which cuts what is too long.
void SvgWriter::AddText(const FlowCommand& command, const FlowBox& box) {
  svg_ += "<svg" + Number("x", box.left) + Number("y", box.top);
  svg_ += Number("width", FlowLayout::kRight - box.left - kCountWidth);
  svg_ += Number("height", FlowBox::kHeight) + "><text" + Number("x", kExitLine + kLeftLine);
  svg_ += Number("y", FlowBox::kHeight / 2 + kRounding) + "><tspan class=\"line\">";
  svg_ += std::to_string(LineOf(command)) + "</tspan> <tspan class=\"name\">";
  svg_ += SignOf(command) + Html(Shortened(command.element->ValueStr(), kLongestName));
  svg_ += "</tspan> ";
  if (!LabelOf(command).empty()) {
    svg_ +=
        "<tspan class=\"label\">" + Html(Shortened(LabelOf(command), kLongestName)) + ":</tspan> ";
  }
  svg_ += Html(Shortened(TellingOf(command), kLongestName)) + "</text></svg>";
}

void SvgWriter::AddSharedBox(const FlowBox& box, std::string_view text) {
  svg_ += "<g class=\"box shared\"><rect" + Number("x", box.left) + Number("y", box.top);
  svg_ += Number("width", FlowLayout::kRight - box.left);
  svg_ += Number("height", FlowBox::kHeight) + Number("rx", FlowBox::kHeight / 2) + "/><text";
  svg_ += Number("x", box.left + kExitLine + kLeftLine);
  svg_ += Number("y", box.Middle() + kRounding) + ">";
  svg_.append(text) += "</text></g>\n";
}

}  // namespace

std::string SvgOf(const ScriptFlow& flow, const FlowRoad& road, std::size_t linesOnPage,
                  std::size_t failedLine) {
  return SvgWriter(flow, road, linesOnPage, failedLine).Write();
}

}  // namespace tlx
