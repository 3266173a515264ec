#include "tools/tlx/verification.h"

#include <optional>

#include "engine/script_engine.h"
#include "launcher/admission.h"
#include "platform/machine.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/event_spool.h"
#include "telemetry/reason_names.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/script_check.h"
#include "tools/tlx/script_lint.h"

namespace tlx {
namespace {

using platform::Code;

// Goes the way of a run up to the start of the script.
void GoThroughGates(Code machineOpened, Verification* verification) {
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
    ListScriptFaults(verification->header->content, &obstacles);
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

}  // namespace

void ListScriptFaults(cvn::StringView script, cvn::List<cvn::String>* sentences) {
  const auto add = [sentences](TextPosition position, cvn::StringView text) {
    sentences->push_back(cvn::Format(u"The script, line %u, column %u: %s%s", position.line,
                                     position.column, text, text.ends_with(u'?') ? u"" : u"."));
  };
  TiXmlDocument document;
  const auto fault = CheckScript(cvn::WideToUtf8(script), &document);
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

std::optional<MachineProblem> OpenMachineToJudge(cvn::StringView folder, Verification* verification,
                                                 Code* opened) {
  if (folder.empty()) {
    *opened = platform::machine::UseDefault();
    if (*opened == platform::kPathNotFound && HasNoDefaultMachine()) {
      return MachineProblem{platform::machine::DefaultFolder(), kNoMachineYet};
    }
    return std::nullopt;
  }
  verification->examination.machineFolder = folder;
  *opened = platform::machine::Use(folder);
  if (*opened == platform::kNotSupported) {
    return MachineProblem{folder, kNoMachinesHere};
  }
  return std::nullopt;
}

void JudgePatch(Code machineOpened, Verification* verification) {
  GoThroughGates(machineOpened, verification);
  ListObstacles(verification);
}

}  // namespace tlx
