#include "tools/tlx/page.h"

#include <tinyxml.h>

#include <algorithm>
#include <optional>

#include "launcher/patch_metadata.h"
#include "platform/paths.h"
#include "support/utf.h"
#include "tools/tlx/html_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/page_changes.h"
#include "tools/tlx/page_frame.h"
#include "tools/tlx/page_run.h"
#include "tools/tlx/rehearsal_text.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/set_text.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

std::string OutcomeOf(const Rehearsal& rehearsal) {
  return cvn::WideToUtf8(DescribeEnd(rehearsal).front());
}

bool AreChangesTold(const Rehearsal& rehearsal) {
  return rehearsal.changesCode == platform::kSuccess;
}

std::string UntoldOf(const Rehearsal& rehearsal) {
  return "can't be told: " + Html(DescribeCode(rehearsal.changesCode));
}

std::string PatchIdIn(const std::string& script) {
  tessel::PatchMetaData meta;
  meta.content = cvn::Utf8ToWide(script);
  tessel::ExtractPatchMetaData(&meta);
  return meta.id.Empty() ? "none" : Code(meta.id);
}

std::string FailureOf(const FailurePoint& failure, std::size_t linesOnPage) {
  return LineLink(failure.line, linesOnPage) + ", " + Code(failure.command) + ": error " +
         Code(failure.error);
}

std::string SummaryOf(const Rehearsal& rehearsal, const ChangeReport& report,
                      std::size_t linesOnPage) {
  const auto& visits = rehearsal.visits;
  const auto entered =
      std::ranges::count_if(visits, [](const CommandVisits& visit) { return visit.count != 0; });
  std::string html = "<dl>\n";
  html += TermRow("Patch", Code(rehearsal.patch));
  html += TermRow("Id", PatchIdIn(rehearsal.script));
  html += TermRow("Machine", Code(rehearsal.machineFolder) + ", seen through " +
                                 Html(WordsFor(rehearsal.kind)) + "; it stays as it is");
  html += TermRow("Begun", Html(UtcText(rehearsal.startedAt)));
  html += TermRow("Took", std::to_string(rehearsal.milliseconds) + " ms");
  html += TermRow("End", Html(OutcomeOf(rehearsal)));
  html += TermRow("Last failure", rehearsal.failure ? FailureOf(*rehearsal.failure, linesOnPage)
                                                    : std::string("none"));
  html += TermRow("Commands",
                  std::to_string(entered) + " of " + std::to_string(visits.size()) + " entered");
  html += TermRow("Changes", AreChangesTold(rehearsal) ? CountsOf(report) : UntoldOf(rehearsal));
  html +=
      TermRow("Beyond the machine",
              rehearsal.would.empty() ? "nothing"
                                      : CountOf(rehearsal.would.size(), "action") + ", none done");
  html += TermRow("Events", std::to_string(rehearsal.events.size()));
  return html + "</dl>\n";
}

}  // namespace

std::string RehearsalPage(const Rehearsal& rehearsal, const ChangeReport& report) {
  TiXmlDocument document;
  std::optional<ScriptFlow> flow;
  if (!CheckScript(rehearsal.script, &document)) {
    flow.emplace(*document.RootElement()->FirstChildElement("script"));
  }
  const bool isKnown = flow && flow->Commands().size() == rehearsal.visits.size();
  const cvn::List<std::string_view> lines = LinesOf(rehearsal.script);
  const std::size_t linesOnPage = CountShown(lines);
  const std::string changes = AreChangesTold(rehearsal)
                                  ? ChangesBody(report)
                                  : "<p>What it changed " + UntoldOf(rehearsal) + "</p>\n";
  const PageHead head = {
      "Rehearsal", platform::paths::FindFileName(rehearsal.patch),
      AreChangesTold(rehearsal) && rehearsal.exitCode == 0 && !rehearsal.IsCutShort(),
      OutcomeOf(rehearsal)};
  return MakePage(head,
                  {{"summary", "Summary", SummaryOf(rehearsal, report, linesOnPage)},
                   {"failures", "Failures", FailuresBody(rehearsal, linesOnPage)},
                   {"flow", "Flow", FlowBody(rehearsal, isKnown ? &*flow : nullptr, linesOnPage)},
                   {"script", "Script", ScriptBody(rehearsal, lines, linesOnPage)},
                   {"changes", "Changes", changes},
                   {"beyond", "Beyond the machine", BeyondBody(rehearsal, linesOnPage)},
                   {"events", "Events", EventsBody(rehearsal)},
                   {"trace", "Trace", TraceBody(rehearsal)}});
}

std::string SetPage(cvn::StringView folder, const tessel::SetRecord& record,
                    const ChangeReport& report) {
  std::string summary = "<dl>\n";
  summary += TermRow("Set", Code(folder));
  summary += TermRow("Patch", Code(record.patch));
  summary += TermRow("Id", record.patchId.Empty() ? "none" : Code(record.patchId));
  summary += TermRow("Machine", Code(record.machineFolder));
  summary += TermRow("Begun", Html(TimeText(record)));
  summary += TermRow("Exit code", std::to_string(record.exitCode));
  summary += TermRow("Reason", Html(record.reason));
  summary += TermRow("Changes", CountsOf(report));
  summary += "</dl>\n";
  const std::string outcome = "The changes are " + cvn::WideToUtf8(WordsFor(record.state));
  const PageHead head = {"Change set", platform::paths::FindFileName(record.patch),
                         record.exitCode == 0, outcome};
  return MakePage(head,
                  {{"summary", "Summary", summary}, {"changes", "Changes", ChangesBody(report)}});
}

}  // namespace tlx
