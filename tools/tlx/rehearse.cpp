#include <memory>

#include "platform/paths.h"
#include "platform/streams.h"
#include "support/format.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/keep_rehearsal.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/machine_turn.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/page.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/rehearsal.h"
#include "tools/tlx/rehearsal_json.h"
#include "tools/tlx/rehearsal_text.h"
#include "tools/tlx/set_operand.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

namespace machine = platform::machine;
namespace paths = platform::paths;
using platform::Code;
using platform::streams::Output;

constexpr OptionSpec kOptions[] = {
    kMachineOption,
    kVariableOption,
    {u"--answer", u"COMMAND=ERROR", false,
     u"What each COMMAND that reaches beyond the machine fails with: a code, or a word of its own",
     true},
    {u"--keep", u"SET", false, u"Keep the change set in a new folder, for tlx changes"},
    kSecondsOption,
    kMegabytesOption,
    kProcessesOption,
    kYesOption,
    {u"--json", u"", false, u"Print one line of JSON, as docs/rehearsal.schema.json describes it"},
    {u"--html", u"FILE.html", false, u"Write a page with all of it, which needs no network"},
};

constexpr OperandSpec kOperands[] = {
    {u"PATCH", true, u"A patch file or a folder with one, or a script, .xml or '-'"},
};

// The command and the code of "COMMAND=ERROR". False when it is none.
bool ReadAnswerOption(cvn::StringView text, cvn::Map<cvn::String, Code>* answers) {
  const std::size_t equals = text.find(u'=');
  if (equals == cvn::StringView::npos || !ReachesBeyond(text.substr(0, equals))) {
    return false;
  }
  const std::optional<Code> code = AnswerCode(text.substr(equals + 1));
  if (code) {
    answers->insert_or_assign(text.substr(0, equals), *code);
  }
  return code.has_value();
}

cvn::String FaultOf(const Options& options) {
  cvn::Map<cvn::String, Code> answers;
  for (const cvn::String& answer : options.Values(u"--answer")) {
    if (!ReadAnswerOption(answer, &answers)) {
      return cvn::Format(
          u"option '--answer' takes a command that reaches beyond the machine, '=' and an error, "
          u"as in processRun=2; not '%s'",
          answer);
    }
  }
  if (options.Has(u"--json") && options.Value(u"--html") == u"-") {
    return kOneOutput;
  }
  return FaultOfLimits(options);
}

// A script by its name, or from standard input; else a patch. The exit code of a failure that it
// told.
int TakeOperand(cvn::StringView operand, RunRequest* request) {
  if (operand != u"-" && !paths::FindExtension(operand).ends_with(u"xml")) {
    return FindPatch(operand, &request->patch);
  }
  request->patch = FullPathOf(operand);
  const Code code = ReadInput(operand, &request->script.emplace());
  return code == platform::kSuccess ? kExitDone : FailToRead(operand, code);
}

// Whether standard output is for the JSON or the page alone.
bool IsOutputTaken(const Options& options) {
  return options.Has(u"--json") || options.Value(u"--html") == u"-";
}

void PrintLines(const cvn::List<cvn::String>& lines) {
  for (const cvn::String& line : lines) {
    platform::streams::WriteLine(Output::Out, line);
  }
}

// The exit code of a failure that it told.
int Tell(const Rehearsal& rehearsal, const ChangeReport& report, const Options& options) {
  if (options.Has(u"--json")) {
    PrintJson(RehearsalJson(rehearsal, report));
  } else if (!IsOutputTaken(options)) {
    const bool isTold = rehearsal.changesCode == platform::kSuccess;
    PrintLines(DescribeRehearsal(rehearsal));
    PrintLines(isTold ? DescribeReport(report) : cvn::List<cvn::String>());
  }
  return options.Has(u"--html")
             ? WriteWholeFile(options.Value(u"--html"), RehearsalPage(rehearsal, report))
             : kExitDone;
}

int Rehearse(const Options& options) {
  RunRequest request;
  request.limits = LimitsOf(options);
  request.sparesOutput = IsOutputTaken(options);
  for (const cvn::String& text : options.Values(kVariableOption.name)) {
    request.variables.push_back(text);
  }
  for (const cvn::String& answer : options.Values(u"--answer")) {
    ReadAnswerOption(answer, &request.answers);
  }
  machine::MachineLock lock;
  std::unique_ptr<machine::View> view;
  cvn::String setFolder;
  int exitCode = TakeOperand(options.Operand(0), &request);
  if (exitCode == kExitDone && options.Has(u"--keep")) {
    exitCode = FindPlaceOfSet(options.Value(u"--keep"), &setFolder);
  }
  exitCode = exitCode == kExitDone ? ShareMachine(options, &lock) : exitCode;
  if (exitCode == kExitDone) {
    exitCode = PrepareView(options, true, &view);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  Rehearsal rehearsal;
  rehearsal.patch = options.Operand(0);
  const Code code = RunInView(request, view.get(), &rehearsal);
  if (code != platform::kSuccess) {
    return FailOnFile(view->Folder(), cvn::Format(u"no run in a view of it could be started: %s",
                                                  DescribeCode(code)));
  }
  const bool isTold = rehearsal.changesCode == platform::kSuccess;
  exitCode = Tell(rehearsal, ReportChanges(rehearsal.changes, &view->Bytes()), options);
  if (exitCode == kExitDone && !setFolder.Empty() && isTold) {
    exitCode = KeepRehearsal(setFolder, rehearsal, request, &view->Bytes());
  }
  const bool isGood = isTold && rehearsal.exitCode == 0 && !rehearsal.IsCutShort();
  return isGood ? exitCode : kExitBadInput;
}

}  // namespace

const CommandSpec kRehearseCommand = {
    u"rehearse",
    u"Run a patch or a script on a view of the machine, which stays as it is",
    u"Runs as tessel does, gates and all, in a copy-on-write view of the machine: nothing is "
    u"changed "
    u"there, the\n"
    u"host's files can only be read, and there is no network. Programs, downloads, services, "
    u"libraries and users\n"
    u"aren't touched: that they would be is told, and the script goes on as if it had worked, or "
    u"as "
    u"--answer says.\n"
    u"A script needs neither packing nor signing. The exit code is 0 when that of the run is. "
    u"Linux "
    u"only.\n",
    kOptions,
    Rehearse,
    kOperands,
    FaultOf,
};

}  // namespace tlx
