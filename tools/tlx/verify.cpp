#include <optional>

#include "engine/script_engine.h"
#include "launcher/admission.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_spool.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/commands.h"
#include "tools/tlx/json_output.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"
#include "tools/tlx/verification.h"

namespace tlx {
namespace {

namespace paths = platform::paths;
using platform::Code;
using platform::streams::Output;
using platform::streams::WriteLine;

constexpr OptionSpec kOptions[] = {
    {u"--machine", u"DIR", false, u"The machine's folder; without it, the one that tessel takes"},
    {u"--json", u"", false, u"Print one line of JSON, as docs/verify.schema.json describes it"},
};

constexpr OperandSpec kOperands[] = {
    {u"PATCH", true, u"The patch file, or a folder with one"},
};

cvn::String FaultOf(const Options& options) {
  return options.Operand(0) == u"-"
             ? cvn::String(u"PATCH can't be standard input: a patch is judged by where it lies")
             : cvn::String();
}

// Opens the machine, and never makes one. The exit code of a failure that it told.
int OpenMachine(const Options& options, Verification* verification, Code* opened) {
  if (!options.Has(u"--machine")) {
    *opened = platform::machine::UseDefault();
    return *opened == platform::kPathNotFound && IsDefaultMachineMissing() ? kExitBadInput
                                                                           : kExitDone;
  }
  verification->examination.machineFolder = options.Value(u"--machine");
  *opened = platform::machine::Use(options.Value(u"--machine"));
  return *opened == platform::kNotSupported
             ? FailOnFile(options.Value(u"--machine"), kNoMachinesHere)
             : kExitDone;
}

// Goes the way of a run up to the start of the script.
void Judge(Code machineOpened, Verification* verification) {
  tessel::LaunchSettings settings;
  settings.patchFilePath = &verification->patch;
  tessel::RunFacts facts;
  tessel::Admission admission(settings, &facts, &verification->examination);
  tessel::RunEnd end{.exitCode = admission.PassGates(machineOpened)};
  if (!admission.MetaData().content.Empty()) {
    verification->header = admission.MetaData();
  }
  std::optional<tessel::ScriptEngine> engine;
  if (end.exitCode == 0) {
    end = admission.LoadScript(&engine);
  }
  if (engine && engine->ExpiresAt() != 0) {
    verification->expiresAt = engine->ExpiresAt();
  }
  verification->exitCode = end.exitCode;
  verification->reason =
      end.detail.empty() ? tessel::ToolRanReasonName(end.exitCode) : cvn::WideToUtf8(end.detail);
  // Without its folder no event is left.
  verification->raisesEvents = end.exitCode != 0 && !tessel::GetEventsFolder().Empty();
  if (engine) {
    engine->Reset();
  }
}

// What is wrong with a script that the runner refuses to load.
void ListScriptFaults(const tessel::PatchMetaData& header, cvn::List<cvn::String>* obstacles) {
  const auto add = [obstacles](TextPosition position, cvn::StringView text) {
    obstacles->push_back(
        cvn::Format(u"The script, line %u, column %u: %s.", position.line, position.column, text));
  };
  TiXmlDocument document;
  const auto fault = CheckScript(cvn::WideToUtf8(header.content), &document);
  if (fault) {
    add(fault->position, fault->text);
    return;
  }
  for (const Finding& finding : LintScript(document)) {
    if (finding.isError) {
      add(finding.position, finding.text);
    }
  }
}

void ListObstacles(Verification* verification) {
  const tessel::Examination& examination = verification->examination;
  cvn::List<cvn::String>& obstacles = verification->obstacles;
  if (verification->Starts()) {
    return;
  }
  obstacles.push_back(examination.words);
  if (tessel::CriticalReasonName(examination.criticalReason) == "PatchDeleted") {
    obstacles.emplace_back(u"A run would remove the file.");
  }
  if (verification->reason == "PatchExpired") {
    obstacles.emplace_back(
        u"It has expired, or isn't valid yet, by 'created' and 'expires' in its header; without "
        u"the "
        u"first it counts as made in 1970.");
  } else if (examination.words == u"Failed to load patch.") {
    ListScriptFaults(*verification->header, &obstacles);
  }
  if (!examination.catalog) {
    return;
  }
  if (examination.catalog->answer == tessel::kSignatureRefused) {
    for (const tessel::SignatureFinding& finding : examination.catalog->signatures) {
      obstacles.push_back(
          cvn::Format(u"The signature is refused: %s.", tessel::WhatIsWrong(finding)));
    }
  }
  if (examination.catalog->answer == tessel::kPatchFileMismatch) {
    obstacles.emplace_back(u"The catalog doesn't list the patch as it is.");
  }
  for (const tessel::CatalogJudgement::ListedFile& file : examination.catalog->files) {
    if (file.state != tessel::FileState::Genuine) {
      obstacles.push_back(
          cvn::Format(u"The file '%s': %s", file.name, tessel::WordsFor(file.state)));
    }
  }
}

int Verify(const Options& options) {
  Verification verification;
  Code opened = platform::kSuccess;
  int exitCode = OpenMachine(options, &verification, &opened);
  if (exitCode == kExitDone) {
    exitCode = FindPatch(options.Operand(0), &verification.patch);
  }
  if (exitCode != kExitDone) {
    return exitCode;
  }
  Judge(opened, &verification);
  ListObstacles(&verification);
  if (options.Has(u"--json")) {
    PrintJson(VerificationJson(verification));
  } else {
    for (const cvn::String& line : DescribeVerification(verification)) {
      WriteLine(Output::Out, line);
    }
  }
  return verification.Starts() ? kExitDone : kExitBadInput;
}

}  // namespace

const CommandSpec kVerifyCommand = {
    u"verify",
    u"Tell whether a patch would run, and what stands in its way",
    u"Judges a patch and the files that come with it as tessel does, without running it: who "
    u"signed "
    u"it and until\n"
    u"when that is good, each listed file, and the exit code and events of a refusal. Nothing is "
    u"changed. The exit\n"
    u"code is 0 only when the script would be started. A patch in the product's folders is judged "
    u"as if the update\n"
    u"service started it.\n",
    kOptions,
    Verify,
    kOperands,
    FaultOf,
};

}  // namespace tlx
