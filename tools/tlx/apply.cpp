#include <algorithm>
#include <iterator>
#include <memory>

#include "changes/kept_set.h"
#include "platform/clock.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/keep_rehearsal.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/machine_turn.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/rehearsal.h"
#include "tools/tlx/rehearsal_json.h"
#include "tools/tlx/rehearsal_text.h"
#include "tools/tlx/set_operand.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

namespace machine = platform::machine;
using platform::Code;
using platform::streams::Output;
using platform::streams::WriteLine;

constexpr OptionSpec kOptions[] = {
    kMachineOption,
    {u"--accept", u"CODE,...", false,
     u"The exit codes with which the run is committed; 0 without it"},
    {u"--undo", u"SET", false, u"Keep what is changed in the new folder SET, for 'tlx undo'"},
    {u"--trace", u"FILE", false,
     u"Where the trace of a run goes that isn't committed; a file in the current folder without "
     u"it"},
    kVariableOption,
    kSecondsOption,
    kMegabytesOption,
    kProcessesOption,
    kYesOption,
    {u"--json", u"", false,
     u"Print one line of JSON, as docs/rehearsal.schema.json describes it, with the trace; there "
     u"is no file with it then but that of --trace"},
};

constexpr OperandSpec kOperands[] = {
    {u"PATCH", true, u"A patch file, or a folder with one"},
};

// The numbers of a list with commas. False when it is none.
bool ReadCodes(cvn::StringView text, cvn::List<std::int32_t>* codes) {
  while (true) {
    const std::size_t end = std::min(text.find(u','), text.size());
    const cvn::StringView code = text.substr(0, end);
    const bool isNegative = code.starts_with(u'-');
    const std::int64_t number = cvn::ReadInt64(code);
    if (!cvn::IsAllDigits(code.substr(isNegative ? 1 : 0)) ||
        number != static_cast<std::int32_t>(number)) {
      return false;
    }
    codes->push_back(static_cast<std::int32_t>(number));
    if (end == text.size()) {
      return true;
    }
    text.remove_prefix(end + 1);
  }
}

cvn::String FaultOf(const Options& options) {
  cvn::List<std::int32_t> codes;
  if (options.Has(u"--accept") && !ReadCodes(options.Value(u"--accept"), &codes)) {
    return cvn::Format(u"option '--accept' takes exit codes with commas, as in 0,-3010; not '%s'",
                       options.Value(u"--accept"));
  }
  if (options.Operand(0) == u"-") {
    return u"a patch can't come from standard input: what it may do depends on where it lies";
  }
  if (options.Has(u"--json") && options.Value(u"--trace") == u"-") {
    return u"options '--json' and '--trace' can't both write to standard output";
  }
  return FaultOfLimits(options);
}

bool IsAccepted(const Options& options, const Rehearsal& run) {
  cvn::List<std::int32_t> codes;
  if (!options.Has(u"--accept") || !ReadCodes(options.Value(u"--accept"), &codes)) {
    codes = {0};
  }
  return !run.IsCutShort() && std::ranges::find(codes, run.exitCode) != codes.end();
}

// Which commands of the run may have done something beyond the machine.
cvn::List<CommandVisits> VisitsBeyond(const Rehearsal& run) {
  cvn::List<CommandVisits> visits;
  std::ranges::copy_if(run.visits, std::back_inserter(visits), [](const CommandVisits& visit) {
    return visit.count != 0 && ReachesBeyond(visit.name);
  });
  return visits;
}

// What is to be told of the run before the machine changes, which the report compares it with.
Json::Value RunJson(const Rehearsal& run, machine::ChangeBytes* bytes) {
  Json::Value document = RehearsalJson(run, ReportChanges(run.changes, bytes));
  Json::Value& beyond = document["beyond"] = Json::Value(Json::arrayValue);
  for (const CommandVisits& visit : VisitsBeyond(run)) {
    Json::Value value(Json::objectValue);
    value["command"] = JsonText(visit.name);
    value["line"] = static_cast<Json::UInt64>(visit.line);
    value["times"] = static_cast<Json::UInt64>(visit.count);
    beyond.append(value);
  }
  return document;
}

void TellRun(const Options& options, const Rehearsal& run) {
  for (const cvn::String& line : DescribeEnd(run)) {
    WriteLine(Output::Out, line);
  }
  bool isFirst = true;
  for (const CommandVisits& visit : VisitsBeyond(run)) {
    if (isFirst) {
      WriteLine(Output::Out, options.Has(u"--undo")
                                 ? u"Reached beyond the machine, and stays as it is after an undo:"
                                 : u"Reached beyond the machine:");
      isFirst = false;
    }
    const cvn::String times =
        visit.count == 1 ? cvn::String() : cvn::Format(u", %llu times", visit.count);
    WriteLine(Output::Out, cvn::Format(u"  line %u, %s%s", visit.line, visit.name, times));
  }
}

// The machine has no trace of a run that never was.
void KeepTrace(const Options& options, const Rehearsal& run) {
  if (run.trace.empty()) {
    return WarnOfFile(options.Operand(0), u"the run left no trace");
  }
  cvn::String file = options.Value(u"--trace");
  if (file.Empty() && !options.Has(u"--json")) {
    file = cvn::Format(u"tessel-trace-%lld.txt",
                       platform::clock::NowTicks() / platform::clock::kTicksPerSecond);
  }
  if (!file.Empty() && WriteText(file, run.trace) == kExitDone && file != u"-") {
    WriteLine(Output::Error, cvn::Format(u"The trace of the run is in %s.", Printable(file)));
  }
}

int RefuseRun(const Options& options, const Rehearsal& run) {
  KeepTrace(options, run);
  return FailOnFile(
      options.Operand(0),
      run.IsCutShort() ? cvn::String(u"the run didn't come to its end, so nothing was changed")
                       : cvn::Format(u"the run ended with %d, which isn't accepted, so nothing was "
                                     u"changed",
                                     run.exitCode));
}

// The set counts as committed when the commit has begun; until then the machine is as it was.
void NoteCommitted(const RunRequest& request, const Rehearsal& run, const cvn::String& setFolder) {
  const Code code = tessel::PutRecord(
      setFolder, RecordOf(run, request, tessel::SetState::Committed), run.changes);
  if (code != platform::kSuccess) {
    WarnOfFile(setFolder, cvn::Format(u"that it was committed couldn't be noted there: %s",
                                      DescribeCode(code)));
  }
}

int Commit(const Options& options, const RunRequest& request, const Rehearsal& run,
           const cvn::String& setFolder, machine::ChangeBytes* bytes, bool* isBegun) {
  if (!setFolder.Empty() && KeepRehearsal(setFolder, run, request, bytes) != kExitDone) {
    return FailOnFile(options.Operand(0), u"nothing was changed, because that couldn't be undone");
  }
  CommitOutcome outcome;
  const int exitCode = CommitChanges(MachineName(options), run.changes, bytes, &outcome);
  *isBegun = outcome.isBegun;
  if (!outcome.conflicts.empty()) {
    return TellConflicts(MachineName(options), outcome.conflicts);
  }
  if (*isBegun && !setFolder.Empty()) {
    NoteCommitted(request, run, setFolder);
  }
  return exitCode;
}

// Ends a run that has been in the view: commits what it changed, or not.
int Conclude(const Options& options, const RunRequest& request, const Rehearsal& run,
             const cvn::String& setFolder, machine::ChangeBytes* bytes) {
  const bool isJson = options.Has(u"--json");
  Json::Value document = isJson ? RunJson(run, bytes) : Json::Value();
  if (!isJson) {
    TellRun(options, run);
  }
  bool isBegun = false;
  const bool isAccepted = IsAccepted(options, run);
  const int exitCode = isAccepted ? Commit(options, request, run, setFolder, bytes, &isBegun)
                                  : RefuseRun(options, run);
  const bool isDone = isAccepted && exitCode == kExitDone;
  if (isJson) {
    document["commit"] = isDone ? "done" : isBegun ? "begun" : "none";
    PrintJson(document);
  } else if (isDone) {
    WriteLine(Output::Out, cvn::Format(u"Committed: %s", CountsOf(run.changes)));
  }
  return isDone && run.exitCode != 0 ? kExitBadInput : exitCode;
}

int Apply(const Options& options) {
  RunRequest request;
  request.isRehearsal = false;
  request.sparesOutput = options.Has(u"--json");
  request.limits = LimitsOf(options);
  for (const cvn::String& text : options.Values(kVariableOption.name)) {
    request.variables.push_back(text);
  }
  cvn::String setFolder;
  machine::MachineLock lock;
  std::unique_ptr<machine::View> view;
  int exitCode = FindPatch(options.Operand(0), &request.patch);
  if (exitCode == kExitDone && options.Has(u"--undo")) {
    exitCode = FindPlaceOfSet(options.Value(u"--undo"), &setFolder);
  }
  exitCode = exitCode == kExitDone ? HaveMachineAlone(options, &lock) : exitCode;
  exitCode = exitCode == kExitDone ? PrepareView(options, false, &view) : exitCode;
  if (exitCode != kExitDone) {
    return exitCode;
  }
  Rehearsal run;
  run.patch = options.Operand(0);
  const Code code = RunInView(request, view.get(), &run);
  if (code != platform::kSuccess) {
    return FailOnFile(view->Folder(),
                      cvn::Format(u"nothing was changed, since no run in a view of it could be "
                                  u"started, or what it did be found: %s",
                                  DescribeCode(code)));
  }
  return Conclude(options, request, run, setFolder, &view->Bytes());
}

}  // namespace

const CommandSpec kApplyCommand = {
    u"apply",
    u"Run a patch, and commit all that it changes on the machine or nothing",
    u"Runs the patch as tessel does, gates and all, in a view of the machine. Only when its exit "
    u"code is accepted\n"
    u"is what it changed committed to the machine, trace and events included, by a journal: if "
    u"that "
    u"is interrupted,\n"
    u"the next run, 'tlx apply', 'tlx undo' or 'tlx machine check' ends it. Otherwise nothing has "
    u"changed there.\n"
    u"Programs that the script starts run in the view too; what they, downloads and services do "
    u"beyond the machine\n"
    u"has happened either way, and is told. Nobody else uses the machine meanwhile. The exit code "
    u"is 0 when the\n"
    u"run's was and all is committed. Not on Windows.\n",
    kOptions,
    Apply,
    kOperands,
    FaultOf,
};

}  // namespace tlx
