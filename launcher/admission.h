// All that a patch has to pass between its path and the start of its script.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/script_engine.h"
#include "launcher/command_line.h"
#include "launcher/examination.h"
#include "launcher/gates.h"
#include "launcher/machine_check.h"
#include "launcher/patch_metadata.h"
#include "launcher/run_reports.h"
#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// Its two steps are to be taken in their order. With an examination the patch is only judged.
class Admission {
 public:
  // `settings` names a patch by the time of the first step. `examination` is null for a run,
  // `observer` where nobody watches it. All arguments outlive this.
  Admission(const LaunchSettings& settings, RunFacts* facts, Examination* examination,
            RunObserver* observer = nullptr)
      : settings_(settings),
        facts_(*facts),
        examination_(examination),
        observer_(observer),
        gates_(settings, meta_, facts, examination) {}

  // The machine, the patch file, and the gates. 0, or the exit code of the refusal; a file that
  // can't be read gives the platform's own code.
  std::int32_t PassGates(const MachineOpening& machineOpened);

  // In place of PassGates for a script in UTF-8 that a tool runs as it is.
  std::int32_t TakeScript(const MachineOpening& machineOpened, const std::string& script);

  // Compiles the script into a new engine. How a run ends whose script isn't accepted; an exit code
  // of 0 when it is.
  RunEnd LoadScript(std::optional<ScriptEngine>* engine);

  // What the patch says of itself, as far as it was read.
  const PatchMetaData& MetaData() const { return meta_; }

 private:
  std::int32_t JudgeMachine(const MachineOpening& opened);
  std::int32_t ReadPatch(std::string* bytes);
  std::int32_t ReadScript();
  void TakeText(const std::string& script);
  void Tell(cvn::StringView words);

  const cvn::String& Path() const { return *settings_.patchFilePath; }

  const LaunchSettings& settings_;
  RunFacts& facts_;
  Examination* const examination_;
  RunObserver* const observer_;
  PatchMetaData meta_;
  cvn::String contentHash_;  // of the patch as it was read
  Gates gates_;
};

}  // namespace tessel
