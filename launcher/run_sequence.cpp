#include "launcher/run_sequence.h"

#include <span>
#include <string>

#include "engine/script_engine.h"
#include "files/path_text.h"
#include "launcher/command_line.h"
#include "launcher/patch_container.h"
#include "launcher/patch_file.h"
#include "launcher/patch_metadata.h"
#include "launcher/process_environment.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/libraries.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "trace/trace.h"

namespace tessel {
namespace {

using platform::streams::Output;

// Exit codes of the refusals. A patch that can't be read ends with the platform's own code.
constexpr std::int32_t kPatchScriptFileNotFound = 3;
constexpr std::int32_t kPatchCorruptScriptFile = 13;
constexpr std::int32_t kPatchInvalidArguments = 87;
constexpr std::int32_t kPatchInvalidPatch = 1636;
constexpr std::int32_t kPatchDecryptionFailed = 6001;

// Makes the path of this run's trace file, and the folder for it.
cvn::String MakeTraceFilePath() {
  cvn::String path = platform::paths::CommonApplicationData();
  if (path.Empty()) {
    path = u"%ProgramData%";
  }
  platform::paths::AddBackslash(&path);
  path.Append(u"Tessera");
  platform::files::CreateDirectoryRecursive(path);
  platform::paths::AddBackslash(&path);
  const std::int64_t seconds = platform::clock::NowTicks() / platform::clock::kTicksPerSecond;
  const cvn::String secondsText = cvn::Format(u"%lld", seconds);
  path.Append(cvn::Format(u"ts-%s-%d.txt", secondsText, platform::process::CurrentId()));
  return path;
}

// Hardens the process and opens the trace, before anything from outside is looked at.
void PrepareProcess() {
  platform::libraries::NarrowSearch();
  ApplyProcessEnvironment();
  platform::streams::SetTextModes();
  EnablePrivileges();
  const cvn::String path = MakeTraceFilePath();
  // Nobody hears this one, since no trace is open; it stands here as before every opening.
  TraceLine(u"set trace file: %s\n", path);
  OpenTraceFile(path);
}

void TraceUsage(const cvn::List<cvn::String>& arguments) {
  TraceLine(u"Usage:\n%s [/encfile] <path> [/debug] [/var key value]*\n",
            arguments.empty() ? cvn::StringView() : arguments[0].AsView());
}

// Brings what the script changed in the registry to the disk, where the system doesn't do so by
// itself.
void FlushRegistry() {
  const platform::Code code = platform::registry::Flush();
  if (code != platform::kSuccess) {
    platform::streams::WriteLine(Output::Error,
                                 cvn::Format(u"Failed to write the registry. Error: %d.", code));
    TraceLine(u"Error writing the registry: %d", code);
  }
}

// One run, whose steps hand on what they found. Each step gives 0, or the exit code that ends the
// run.
class PatchRun {
 public:
  std::int32_t Run(const cvn::List<cvn::String>& arguments);

 private:
  std::int32_t ReadOptions(const cvn::List<cvn::String>& arguments);
  std::int32_t ReadPatch(std::string* bytes) const;
  std::int32_t ReadScript();
  std::int32_t RunScript() const;

  const cvn::String& Path() const { return *settings_.patchFilePath; }

  LaunchSettings settings_;
  cvn::List<cvn::String> options_;
  PatchMetaData meta_;
};

std::int32_t PatchRun::Run(const cvn::List<cvn::String>& arguments) {
  std::int32_t code = ReadOptions(arguments);
  if (code == 0) {
    code = ReadScript();
  }
  if (code != 0) {
    return code;
  }
  if (settings_.detachMode) {
    platform::streams::WriteLine(Output::Out, u"Patch validation finished.");
  }
  return RunScript();
}

std::int32_t PatchRun::ReadOptions(const cvn::List<cvn::String>& arguments) {
  TraceLine(u"Started from %s\n", GetExeFolder());
  cvn::String errorText;
  if (!ParseCommandLine(arguments, &settings_, &errorText, &options_)) {
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
  TraceLine(u"Input file used: %s", Path());
  TraceLine(u"set script path: %s", Path());
  return 0;
}

std::int32_t PatchRun::ReadPatch(std::string* bytes) const {
  if (!platform::paths::Exists(Path())) {
    platform::streams::WriteLine(Output::Error, u"Patch not found.");
    TraceLine(u"Input file not existing... exit");
    return kPatchScriptFileNotFound;
  }
  TraceLine(u"Decrypting");
  const auto code = static_cast<std::int32_t>(ReadPatchFile(Path(), bytes));
  if (code != 0) {
    platform::streams::WriteLine(Output::Error,
                                 cvn::Format(u"Failed to load the patch. Error: %d.", code));
    TraceLine(u"Error reading file '%s': %d", Path(), code);
  }
  return code;
}

std::int32_t PatchRun::ReadScript() {
  std::string plainText;
  {
    std::string bytes;
    const std::int32_t code = ReadPatch(&bytes);
    if (code != 0) {
      return code;
    }
    if (DecryptPatch(std::as_bytes(std::span(bytes)), &plainText) != kPatchDecrypted) {
      TraceLine(u"Error decrypting patch content");
      TraceLine(u"Extension of file %s", platform::paths::FindExtension(Path()));
      platform::streams::WriteLine(Output::Error, u"Failed to decrypt the patch.");
      return kPatchDecryptionFailed;
    }
  }
  // The text ends at its first zero byte.
  meta_.content = cvn::Utf8ToWide(plainText.c_str());
  ExtractPatchMetaData(&meta_);
  TraceLine(u"Running patch of type: %s, with id: %s", meta_.patchType, meta_.id);
  return 0;
}

std::int32_t PatchRun::RunScript() const {
  ScriptEngine engine;
  TraceLine(u"Loading decrypted file");
  if (!engine.ParseText(meta_.content)) {
    platform::streams::WriteLine(Output::Error, u"Failed to load patch.");
    TraceLine(u"Cannot parse file from '%s'\n", Path());
    return kPatchCorruptScriptFile;
  }
  TraceLine(u"Prepare");
  const std::int32_t loaded = engine.Load(settings_.scriptVariables);
  if (loaded != kLoadSuccess) {
    TraceLine(u"Error running xml script from file '%s': %d \n", Path(), loaded);
    engine.Reset();
    return kPatchInvalidPatch;
  }
  SetVariable(u"scriptdir", GetParentFolder(Path()), &ProcessVariables());
  TraceLine(u"Execute");
  const std::int32_t result = engine.Run();
  FlushRegistry();
  TraceLine(u"End execution");
  engine.Reset();
  // As a negative number whatever its sign was; computed so that the most negative one is no
  // exception.
  return result > 0 ? -result : result;
}

}  // namespace

std::int32_t RunPatch(const cvn::List<cvn::String>& arguments) {
  PrepareProcess();
  return PatchRun().Run(arguments);
}

}  // namespace tessel
