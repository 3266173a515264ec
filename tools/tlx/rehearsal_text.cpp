#include "tools/tlx/rehearsal_text.h"

#include <algorithm>
#include <utility>

#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/spooled_event.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

using platform::machine::ViewEnd;
using platform::machine::ViewKind;

cvn::String Describe(const FailurePoint& failure) {
  return cvn::Format(u"line %u, %s: error %s", failure.line, failure.command,
                     Printable(failure.error));
}

// What nothing in the script took notice of is often what its author doesn't know of.
void AddUnhandled(const cvn::List<FailurePoint>& failures, cvn::List<cvn::String>* lines) {
  bool isFirst = true;
  for (const FailurePoint& failure : failures) {
    if (failure.isHandled) {
      continue;
    }
    if (isFirst) {
      lines->emplace_back(u"Failed, and no handler took it:");
      isFirst = false;
    }
    lines->push_back(cvn::Format(u"  %s", Describe(failure)));
  }
}

void AddScriptFaults(const std::string& script, cvn::List<cvn::String>* lines) {
  cvn::List<cvn::String> sentences;
  ListScriptFaults(cvn::Utf8ToWide(script), &sentences);
  for (const cvn::String& sentence : sentences) {
    lines->push_back(cvn::Format(u"  %s", Printable(sentence)));
  }
}

cvn::String DescribeEvent(const std::string& line) {
  const std::optional<SpooledEvent> event = ReadEventLine(line);
  return event ? cvn::Format(u"Event: %s %s", Printable(event->name), Printable(event->reason))
               : cvn::Format(u"Event: %s", Printable(cvn::Utf8ToWide(line)));
}

void AddWould(const cvn::List<WouldDo>& would, cvn::List<cvn::String>* lines) {
  if (!would.empty()) {
    lines->emplace_back(u"Not done, beyond the machine:");
  }
  for (const WouldDo& one : would) {
    lines->push_back(cvn::Format(
        u"  line %u, %s: would %s%s", one.line, one.command, Printable(one.what),
        one.answer == platform::kSuccess
            ? cvn::String()
            : cvn::Format(u" (answered with %d)", static_cast<std::int32_t>(one.answer))));
  }
}

void AddUnreached(const cvn::List<CommandVisits>& visits, cvn::List<cvn::String>* lines) {
  bool isFirst = true;
  for (const CommandVisits& visit : visits) {
    if (visit.count != 0) {
      continue;
    }
    if (isFirst) {
      lines->emplace_back(u"Never reached:");
      isFirst = false;
    }
    lines->push_back(cvn::Format(u"  line %u, %s", visit.line, Printable(visit.name)));
  }
}

}  // namespace

cvn::StringView WordsFor(ViewKind kind) {
  switch (kind) {
    case ViewKind::Overlay:
      return u"an overlay";
    case ViewKind::SharedCopy:
      return u"a copy that shares its blocks";
    case ViewKind::PlainCopy:
      return u"a copy";
  }
  return u"";
}

cvn::StringView WordsFor(ViewEnd end) {
  switch (end) {
    case ViewEnd::Ended:
      return u"It ended by itself.";
    case ViewEnd::TimeOut:
      return u"The run was cut short: it took longer than --max-seconds allows.";
    case ViewEnd::TooMuchWritten:
      return u"The run was cut short: it wrote more than --max-megabytes allows, or nearly filled "
             u"the disk.";
    case ViewEnd::TooManyProcesses:
      return u"The run was cut short: it started more programs than --max-processes allows.";
    case ViewEnd::Crashed:
      return u"The run was killed, or crashed.";
  }
  return u"";
}

cvn::List<cvn::String> DescribeEnd(const Rehearsal& rehearsal) {
  cvn::List<cvn::String> lines;
  if (rehearsal.IsCutShort()) {
    lines.emplace_back(WordsFor(rehearsal.end));
  } else {
    // A number without a name is its own reason.
    const bool isNamed = rehearsal.reason != std::to_string(rehearsal.exitCode);
    const cvn::String reason = cvn::Utf8ToWide(isNamed ? ", " + rehearsal.reason : std::string());
    lines.push_back(cvn::Format(u"Exit code: %d%s", rehearsal.exitCode, Printable(reason)));
  }
  if (rehearsal.failure && (rehearsal.IsCutShort() || rehearsal.exitCode != 0)) {
    lines.push_back(cvn::Format(u"Last failure: %s", Describe(*rehearsal.failure)));
  }
  return lines;
}

cvn::List<cvn::String> DescribeRehearsal(const Rehearsal& rehearsal) {
  cvn::List<cvn::String> lines;
  lines.push_back(cvn::Format(u"Patch: %s", Printable(rehearsal.patch)));
  lines.push_back(cvn::Format(u"Machine: %s, seen through %s; it stays as it is",
                              Printable(rehearsal.machineFolder), WordsFor(rehearsal.kind)));
  for (cvn::String& line : DescribeEnd(rehearsal)) {
    lines.push_back(std::move(line));
  }
  AddUnhandled(rehearsal.failures, &lines);
  AddWould(rehearsal.would, &lines);
  // Of a patch that was refused nothing was reached.
  if (std::ranges::any_of(rehearsal.visits, &CommandVisits::count)) {
    AddUnreached(rehearsal.visits, &lines);
  } else if (!rehearsal.script.empty() && !rehearsal.IsCutShort()) {
    AddScriptFaults(rehearsal.script, &lines);
  }
  for (const std::string& event : rehearsal.events) {
    lines.push_back(DescribeEvent(event));
  }
  if (rehearsal.changesCode != platform::kSuccess) {
    lines.push_back(
        cvn::Format(u"What it changed can't be told: %s", DescribeCode(rehearsal.changesCode)));
  }
  if (!rehearsal.isRecordWhole) {
    lines.emplace_back(u"It did more beyond the machine than could be kept.");
  }
  return lines;
}

}  // namespace tlx
