#include "tools/tlx/page_run.h"

#include <algorithm>
#include <span>

#include "tools/tlx/flow_label.h"
#include "tools/tlx/flow_svg.h"
#include "tools/tlx/html_text.h"
#include "tools/tlx/page_frame.h"

namespace tlx {
namespace {

// Of a script, and of a trace: there, half of them are from its end.
constexpr std::size_t kMostLines = 10'000;
constexpr std::size_t kMostBytes = std::size_t{4} << 20;
constexpr std::size_t kMostRows = 1000;
constexpr std::size_t kLongestName = 200;

// How many lines, from the first on, are within the limits, divided by so many parts of the text.
template <typename Iterator>
std::size_t CountWithin(Iterator line, Iterator end, std::size_t parts) {
  std::size_t count = 0;
  std::size_t bytes = 0;
  for (; line != end && count < kMostLines / parts; ++line, ++count) {
    bytes += std::min(line->size(), kLongestLine);
    if (bytes > kMostBytes / parts) {
      break;
    }
  }
  return count;
}

// Of the commands that stand on each line: how often they were entered.
cvn::Map<std::size_t, cvn::List<std::uint64_t>> VisitsByLine(const Rehearsal& rehearsal) {
  cvn::Map<std::size_t, cvn::List<std::uint64_t>> byLine;
  for (const CommandVisits& visit : rehearsal.visits) {
    byLine[visit.line].push_back(visit.count);
  }
  return byLine;
}

std::string WordsFor(const cvn::List<std::uint64_t>& counts) {
  std::string words;
  for (const std::uint64_t count : counts) {
    words += words.empty() ? "" : ", ";
    words += count == 0 ? "\u25CB never" : "\u2713 " + std::to_string(count) + "\u00D7";
  }
  return words;
}

// What a command that was never entered is part of: the nearest list that the run didn't enter
// although it came to the command with that list.
std::string WhereIs(const FlowCommand& command, const ScriptFlow& flow) {
  const FlowList& list = flow.Lists()[command.list];
  if (list.owner == kNoCommand) {
    return "the script itself";
  }
  const FlowCommand& owner = flow.Commands()[list.owner];
  const std::string name = owner.loop == tessel::LoopKind::None ? NameOf(list) + " of " : "";
  return Code(std::string_view(Shortened(name + owner.element->ValueStr(), kLongestName)));
}

std::string NeverEntered(const Rehearsal& rehearsal, const ScriptFlow& flow,
                         std::size_t linesOnPage) {
  std::string rows;
  std::size_t count = 0;
  for (std::size_t at = 0; at < flow.Commands().size(); ++at) {
    if (rehearsal.visits[at].count != 0 || ++count > kMostRows) {
      continue;
    }
    const FlowCommand& command = flow.Commands()[at];
    rows += "<tr><th scope=\"row\">" + LineLink(rehearsal.visits[at].line, linesOnPage);
    rows += "</th><td class=\"word\">" + Code(rehearsal.visits[at].name) + "</td><td>";
    rows += LabelOf(command).empty() ? "" : Code(Shortened(LabelOf(command), kLongestName));
    rows += "</td><td>" + WhereIs(command, flow) + "</td></tr>\n";
  }
  if (count == 0) {
    return "<p>Every command was entered.</p>\n";
  }
  std::string html = "<details>\n<summary>Never entered: " + CountOf(count, "command");
  html += "</summary>\n<div>\n";
  html += TableStart("Commands that were never entered", {"Line", "Command", "Label", "In"});
  html.append(rows).append(kTableEnd);
  return html + LeftOut(count - std::min(count, kMostRows), "command") + "</div>\n</details>\n";
}

constexpr std::string_view kLegend =
    "<p class=\"legend\">Each box is a command and leads to its line; what stands in a handler or "
    "a "
    "loop is further to the right. A solid box with \u2713 was entered, so many times; a dashed "
    "one "
    "with \u25CB never was. Thick lines were taken. Lines at the right side are jumps, and dashed "
    "ones lead to the target of an onErrorGoTo.</p>\n";

std::string Picture(const Rehearsal& rehearsal, const ScriptFlow& flow, std::size_t linesOnPage) {
  if (flow.Commands().size() > kMostDrawn) {
    return "<p class=\"left\">Left out here: the picture, since the script has more than " +
           CountOf(kMostDrawn, "command") + ".</p>\n";
  }
  FlowRoad road;
  road.steps = rehearsal.steps;
  for (const CommandVisits& visit : rehearsal.visits) {
    road.visits.push_back(visit.count);
  }
  std::string html(kLegend);
  html += "<p class=\"skip-picture\"><a href=\"#never\">Skip the picture</a></p>\n";
  html += "<div class=\"scroll\" role=\"region\" aria-label=\"Picture\" tabindex=\"0\">\n";
  html += SvgOf(flow, road, linesOnPage, rehearsal.failure ? rehearsal.failure->line : 0);
  return html + "</div>\n";
}

void AddScriptRow(std::size_t line, std::string_view text, const cvn::List<std::uint64_t>* counts,
                  bool hasFailed, std::string* html) {
  const bool isNever =
      counts != nullptr && std::ranges::all_of(*counts, [](auto count) { return count == 0; });
  const std::string number = std::to_string(line);
  *html += "<tr id=\"L" + number + "\"";
  *html += hasFailed ? " class=\"failed\"" : isNever ? " class=\"never\"" : "";
  *html += "><th scope=\"row\">" + number + "</th><td class=\"visits\">";
  *html += counts == nullptr ? "" : WordsFor(*counts);
  *html += hasFailed ? "<br>\u2717 failed last" : "";
  *html += "</td><td>" + LineText(text) + "</td></tr>\n";
}

void AddTraceLines(std::span<const std::string_view> lines, std::string* html) {
  for (const std::string_view line : lines) {
    *html += "<span>" + LineText(line) + "\n</span>";
  }
}

}  // namespace

cvn::List<std::string_view> LinesOf(std::string_view text) {
  cvn::List<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end);
    text.remove_prefix(std::min<std::size_t>(text.starts_with("\r\n") ? 2 : 1, text.size()));
  }
  return lines;
}

std::string LineLink(std::size_t line, std::size_t linesOnPage) {
  const std::string number = std::to_string(line);
  return line == 0 || line > linesOnPage ? "line " + number
                                         : "<a href=\"#L" + number + "\">line " + number + "</a>";
}

std::string FailuresBody(const Rehearsal& rehearsal, std::size_t linesOnPage) {
  if (rehearsal.failures.empty()) {
    return "<p>No command failed.</p>\n";
  }
  std::string html = "<p>Of each command that failed, the first time.</p>\n" +
                     TableStart("Commands that failed", {"Line", "Command", "Error", "Handled"});
  const std::size_t shown = std::min(rehearsal.failures.size(), kMostRows);
  for (const FailurePoint& failure : std::span(rehearsal.failures).first(shown)) {
    html += "<tr><th scope=\"row\">" + LineLink(failure.line, linesOnPage);
    html += "</th><td class=\"word\">" + Code(failure.command) + "</td><td>";
    html += Code(failure.error) + "</td><td class=\"word\">";
    html += failure.isHandled ? "yes</td></tr>\n" : "no: the run went on</td></tr>\n";
  }
  html.append(kTableEnd);
  return html + LeftOut(rehearsal.failures.size() - shown, "command");
}

std::string FlowBody(const Rehearsal& rehearsal, const ScriptFlow* flow, std::size_t linesOnPage) {
  if (flow == nullptr) {
    return "<p>There is no flow to draw: the run didn't come to a script that could be read.</p>\n";
  }
  return Picture(rehearsal, *flow, linesOnPage) + "<div id=\"never\" tabindex=\"-1\">\n" +
         NeverEntered(rehearsal, *flow, linesOnPage) + "</div>\n";
}

std::size_t CountShown(const cvn::List<std::string_view>& lines) {
  return CountWithin(lines.begin(), lines.end(), 1);
}

std::string ScriptBody(const Rehearsal& rehearsal, const cvn::List<std::string_view>& lines,
                       std::size_t linesOnPage) {
  if (lines.empty()) {
    return "<p>The run didn't come to its script.</p>\n";
  }
  const auto byLine = VisitsByLine(rehearsal);
  const std::size_t failedLine = rehearsal.failure ? rehearsal.failure->line : 0;
  std::string html =
      "<div class=\"lines\">\n" + TableStart("The script's lines", {"Line", "Entered", "Text"});
  for (std::size_t at = 0; at < linesOnPage; ++at) {
    const auto found = byLine.find(at + 1);
    AddScriptRow(at + 1, lines[at], found == byLine.end() ? nullptr : &found->second,
                 at + 1 == failedLine, &html);
  }
  html.append(kTableEnd);
  return html + "</div>\n" + LeftOut(lines.size() - linesOnPage, "line");
}

std::string BeyondBody(const Rehearsal& rehearsal, std::size_t linesOnPage) {
  std::string html;
  if (rehearsal.would.empty()) {
    html = "<p>Nothing: all that the run did concerns the machine alone.</p>\n";
  } else {
    html = "<p>None of this was done. The script went on with the answer.</p>\n";
    html +=
        TableStart("What would be done beyond the machine", {"Line", "Command", "Would", "Answer"});
    const std::size_t shown = std::min(rehearsal.would.size(), kMostRows);
    for (const WouldDo& one : std::span(rehearsal.would).first(shown)) {
      html += "<tr><th scope=\"row\">" + LineLink(one.line, linesOnPage);
      html += "</th><td class=\"word\">";
      html += Code(one.command) + "</td><td>" + Code(one.what) + "</td><td class=\"word\">";
      html += one.answer == platform::kSuccess
                  ? "success"
                  : "error " + std::to_string(static_cast<std::int32_t>(one.answer));
      html += "</td></tr>\n";
    }
    html.append(kTableEnd);
    html += LeftOut(rehearsal.would.size() - shown, "action");
  }
  if (!rehearsal.isRecordWhole) {
    html += "<p>It did more beyond the machine than could be kept.</p>\n";
  }
  return html;
}

std::string EventsBody(const Rehearsal& rehearsal) {
  if (rehearsal.events.empty()) {
    return "<p>None.</p>\n";
  }
  std::string html = "<ul>\n";
  const std::size_t shown = std::min(rehearsal.events.size(), kMostRows);
  for (const std::string& event : std::span(rehearsal.events).first(shown)) {
    html += "<li>" + Code(std::string_view(event)) + "</li>\n";
  }
  return html + "</ul>\n" + LeftOut(rehearsal.events.size() - shown, "event");
}

std::string TraceBody(const Rehearsal& rehearsal) {
  const cvn::List<std::string_view> lines = LinesOf(rehearsal.trace);
  if (lines.empty()) {
    return "<p>The run left no trace.</p>\n";
  }
  std::string html =
      "<p class=\"filter\" hidden><label for=\"filter\">Show only lines with</label> "
      "<input id=\"filter\" type=\"search\" autocomplete=\"off\" spellcheck=\"false\"> "
      "<span id=\"shown\" role=\"status\"></span></p>\n"
      "<div class=\"scroll trace\" role=\"region\" aria-label=\"Lines of the trace\" "
      "tabindex=\"0\">\n<pre>";
  const std::span<const std::string_view> all = lines;
  if (CountShown(lines) == lines.size()) {
    AddTraceLines(all, &html);
  } else {
    const std::size_t first = CountWithin(lines.begin(), lines.end(), 2);
    const std::size_t last = CountWithin(lines.rbegin(), lines.rend(), 2);
    AddTraceLines(all.first(first), &html);
    html += "</pre>\n" + LeftOut(all.size() - first - last, "line") + "<pre>";
    AddTraceLines(all.last(last), &html);
  }
  return html + "</pre>\n</div>\n";
}

}  // namespace tlx
