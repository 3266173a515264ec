#include "launcher/run_sequence.h"

#include <optional>
#include <utility>

#include "engine/builtin_variables.h"
#include "engine/script_engine.h"
#include "files/path_text.h"
#include "launcher/admission.h"
#include "launcher/command_line.h"
#include "launcher/machine_check.h"
#include "launcher/patch_file.h"
#include "launcher/process_environment.h"
#include "launcher/run_reports.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/libraries.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/stop_request.h"
#include "platform/streams.h"
#include "support/format.h"
#include "telemetry/reason_names.h"
#include "trace/trace.h"
#include "trust/product.h"
#include "trust/protected_folder.h"

namespace tessel {
namespace {

using platform::streams::Output;

// Exit codes of the refusals besides those of the gates. A patch that can't be read ends with the
// platform's own code.
constexpr std::int32_t kPatchInvalidArguments = 87;

// Makes the path of this run's trace file, and the folder for it.
cvn::String MakeTraceFilePath() {
  cvn::String path = platform::paths::CommonApplicationData();
  if (path.Empty()) {
    path = u"%ProgramData%";
  }
  platform::paths::AddBackslash(&path);
  path.Append(u"Tessera");
  // Without the folder there is no trace file, and the run goes on.
  platform::IgnoreError(platform::files::CreateDirectoryRecursive(path));
  platform::paths::AddBackslash(&path);
  const std::int64_t seconds = platform::clock::NowTicks() / platform::clock::kTicksPerSecond;
  const cvn::String secondsText = cvn::Format(u"%lld", seconds);
  path.Append(cvn::Format(u"ts-%s-%d.txt", secondsText, platform::process::CurrentId()));
  return path;
}

// Opens the machine that is to be patched, and shares it; the default one is made on first use.
MachineOpening OpenMachine(platform::machine::MachineLock* lock) {
  platform::machine::Description description;
  description.product = product::InstalledIn(product::kInstallFolder);
  const platform::Code code = platform::machine::UseOrCreateDefault(description);
  return code == platform::kSuccess ? ShareOpenedMachine(lock) : MachineOpening(code);
}

// Hardens the process and opens the trace, before anything from outside is looked at. After a
// failure of the machine's opening everything on drive C: fails with its code.
MachineOpening PrepareProcess(platform::machine::MachineLock* lock, cvn::String* traceFile) {
  platform::stop::Watch();
  platform::libraries::NarrowSearch();
  MachineOpening opened = OpenMachine(lock);
  ApplyProcessEnvironment();
  platform::streams::SetTextModes();
  EnablePrivileges();
  *traceFile = MakeTraceFilePath();
  // Goes nowhere, since no trace is open yet; every opening is announced like this.
  TraceLine(u"set trace file: %s\n", *traceFile);
  OpenTraceFile(*traceFile);
  if (const cvn::StringView found = WordsOf(opened.found); !found.empty()) {
    TraceLine(u"On the machine %s", found);
  }
  return opened;
}

void TraceUsage(const cvn::List<cvn::String>& arguments) {
  TraceLine(u"Usage:\n%s [/encfile] <path> [/debug] [/var key value]*\n",
            arguments.empty() ? cvn::StringView() : arguments[0].AsView());
}

// Brings what the script changed in the registry to its place on the disk, where the system doesn't
// do so by itself. Gives the code.
std::int32_t FlushRegistry() {
  const auto code = static_cast<std::int32_t>(platform::registry::Flush());
  if (code != 0) {
    platform::streams::WriteLine(Output::Error,
                                 cvn::Format(u"Failed to write the registry. Error: %d.", code));
    TraceLine(u"Error writing the registry: %d", code);
  }
  return code;
}

// One run. Its steps leave their results in members. Each step gives 0, or the exit code that ends
// the run.
class PatchRun {
 public:
  PatchRun(const MachineOpening& machineOpened, WatchedRun* watched)
      : machineOpened_(machineOpened), watched_(*watched) {}

  std::int32_t Run(const cvn::List<cvn::String>& arguments);

 private:
  RunEnd GoThrough(const cvn::List<cvn::String>& arguments);
  std::int32_t ReadOptions(const cvn::List<cvn::String>& arguments);
  RunEnd RunScript();

  const cvn::String& Path() const { return *settings_.patchFilePath; }

  const MachineOpening machineOpened_;
  WatchedRun& watched_;
  LaunchSettings settings_;
  cvn::String path_;  // of the patch
  RunFacts facts_;
  Admission admission_{settings_, &facts_, nullptr, watched_.observer};
  bool passedGates_ = false;
  std::optional<ScriptEngine> engine_;  // from the load of the script on
};

std::int32_t PatchRun::Run(const cvn::List<cvn::String>& arguments) {
  const RunEnd end = GoThrough(arguments);
  watched_.end = end;
  ReportRun(&facts_, end);
  if (end.ranScript) {
    TraceLine(u"End execution");
  }
  if (engine_) {
    engine_->Reset();
    engine_.reset();
  }
  // After a refusal there is nothing to remove: the gate has tried that already.
  if (passedGates_) {
    CleanupProtectedFolder();
  }
  return end.exitCode;
}

RunEnd PatchRun::GoThrough(const cvn::List<cvn::String>& arguments) {
  std::int32_t code = ReadOptions(arguments);
  if (code == 0) {
    code = watched_.script != nullptr ? admission_.TakeScript(machineOpened_, *watched_.script)
                                      : admission_.PassGates(machineOpened_);
  }
  if (code != 0) {
    return {.exitCode = code};
  }
  passedGates_ = watched_.script == nullptr;
  if (settings_.detachMode) {
    platform::streams::WriteLine(Output::Out, u"Patch validation finished.");
  }
  return RunScript();
}

std::int32_t PatchRun::ReadOptions(const cvn::List<cvn::String>& arguments) {
  TraceLine(u"Started from %s\n", GetExeFolder());
  cvn::String errorText;
  cvn::List<cvn::String> options;
  const bool isParsed = ParseCommandLine(arguments, &settings_, &errorText, &options);
  facts_.reporter.SetPatchParams(std::move(options));
  if (!isParsed) {
    TraceLine(u"%s\n", errorText);
    TraceUsage(arguments);
    platform::streams::WriteLine(Output::Error, u"Could not parse input parameters.");
    return kPatchInvalidArguments;
  }
  TraceLine(u"Command line parsed, validate arguments");
  if (settings_.patchFilePath == nullptr) {
    TraceLine(u"%s\n", u"Argument pair '/encfile <path>' is missing");
    TraceUsage(arguments);
    platform::streams::WriteLine(Output::Error, u"Could not validate input parameters.");
    return kPatchInvalidArguments;
  }
  path_ = platform::paths::OfCaller(Path());
  settings_.patchFilePath = &path_;
  TraceLine(u"Input file used: %s", Path());
  facts_.reporter.SetScriptPath(Path());
  return 0;
}

RunEnd PatchRun::RunScript() {
  const RunEnd refused = admission_.LoadScript(&engine_);
  if (refused.exitCode != 0) {
    return refused;
  }
  SetVariable(kScriptFolderVariable,
              ProtectedFolderPath().Empty() ? GetParentFolder(Path()) : ProtectedFolderPath(),
              &ProcessVariables());
  TraceLine(u"Execute");
  const std::int32_t result = engine_->Run();
  const std::int32_t written = FlushRegistry();
  const std::int32_t ended = ProcessCodeOf(result);
  return {.exitCode = ended == 0 ? -written : ended,
          .detail = written != 0             ? kRegistryWriteFault
                    : engine_->IsCancelled() ? kPatchCancelled
                                             : cvn::StringView(),
          .ranScript = true};
}

}  // namespace

std::int32_t RunPatch(const cvn::List<cvn::String>& arguments, WatchedRun* watched) {
  platform::machine::MachineLock lock;
  const MachineOpening machineOpened = PrepareProcess(&lock, &watched->traceFile);
  return PatchRun(machineOpened, watched).Run(arguments);
}

std::int32_t RunPatch(const cvn::List<cvn::String>& arguments) {
  StartOpenSslForOneRun();
  WatchedRun unwatched;
  return RunPatch(arguments, &unwatched);
}

}  // namespace tessel
