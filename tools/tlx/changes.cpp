#include "changes/kept_set.h"
#include "changes/manifest_names.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/file_io.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/page.h"
#include "tools/tlx/set_operand.h"
#include "tools/tlx/set_text.h"

namespace tlx {
namespace {

constexpr OptionSpec kOptions[] = {
    {u"--json", u"", false, u"Print one line of JSON, as docs/changes.schema.json describes it"},
    {u"--html", u"FILE.html", false, u"Write a page with it, which needs no network"},
};

cvn::String FaultOf(const Options& options) {
  return options.Has(u"--json") && options.Value(u"--html") == u"-" ? cvn::String(kOneOutput)
                                                                    : cvn::String();
}

constexpr OperandSpec kOperands[] = {
    {u"SET", true, u"The folder of the set"},
};

void PrintText(const tessel::SetRecord& record, const ChangeReport& report) {
  const auto row = [](cvn::StringView title, cvn::StringView text) {
    platform::streams::WriteLine(platform::streams::Output::Out,
                                 cvn::Format(u"%-12s%s", title, Printable(text)));
  };
  row(u"Patch:", record.patch);
  if (!record.patchId.Empty()) {
    row(u"Id:", record.patchId);
  }
  row(u"Machine:", record.machineFolder);
  row(u"Run:", cvn::Format(u"%s, exit code %d, %s", TimeText(record), record.exitCode,
                           cvn::Utf8ToWide(record.reason)));
  row(u"Changes:", WordsFor(record.state));
  for (const cvn::String& line : DescribeReport(report)) {
    platform::streams::WriteLine(platform::streams::Output::Out, line);
  }
}

void PrintAsJson(const tessel::SetRecord& record, const ChangeReport& report) {
  Json::Value document(Json::objectValue);
  document["version"] = 1;
  document["state"] = tessel::NameOf(tessel::kStateNames, record.state);
  document["time"] = JsonText(TimeText(record));
  document["machine"] = JsonText(record.machineFolder);
  document["patch"] = JsonText(record.patch);
  if (!record.patchId.Empty()) {
    document["patchId"] = JsonText(record.patchId);
  }
  document["exitCode"] = record.exitCode;
  document["reason"] = record.reason;
  document["view"] = record.view;
  document["changes"] = ReportJson(report);
  PrintJson(document);
}

int ShowChanges(const Options& options) {
  const cvn::StringView operand = options.Operand(0);
  tessel::KeptSet set;
  if (const int exitCode = ReadSet(operand, &set); exitCode != kExitDone) {
    return exitCode;
  }
  if (const int exitCode = RefuseWithin(options.Value(u"--html"), operand); exitCode != kExitDone) {
    return exitCode;
  }
  const ChangeReport report = ReportChanges(set.Changes(), &set);
  if (options.Has(u"--json")) {
    PrintAsJson(set.Record(), report);
  } else if (options.Value(u"--html") != u"-") {
    PrintText(set.Record(), report);
  }
  return options.Has(u"--html")
             ? WriteWholeFile(options.Value(u"--html"), SetPage(operand, set.Record(), report))
             : kExitDone;
}

}  // namespace

const CommandSpec kChangesCommand = {
    u"changes",
    u"Show a kept change set",
    u"Tells which files, services and keys of the registry a run has changed, or would change. A "
    u"set is a folder\n"
    u"that tlx rehearse --keep or tlx apply --undo has made. It is read whole first, and refused "
    u"when it is damaged.\n",
    kOptions,
    ShowChanges,
    kOperands,
    FaultOf,
};

}  // namespace tlx
