#include "launcher/admission.h"

#include "launcher/machine_check.h"
#include "launcher/patch_file.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/streams.h"
#include "support/format.h"
#include "support/utf.h"
#include "telemetry/reason_names.h"
#include "trace/trace.h"

namespace tessel {
namespace {

// Exit codes of the refusals besides those of the gates.
constexpr std::int32_t kPatchScriptFileNotFound = 3;
constexpr std::int32_t kPatchCorruptScriptFile = 13;
constexpr std::int32_t kPatchInvalidPatch = 1636;

}  // namespace

std::int32_t Admission::PassGates(const MachineOpening& machineOpened) {
  std::int32_t code = JudgeMachine(machineOpened);
  if (code == 0) {
    code = ReadScript();
  }
  return code == 0 ? gates_.Pass(contentHash_) : code;
}

void Admission::Tell(cvn::StringView words) {
  if (examination_ == nullptr) {
    platform::streams::WriteLine(platform::streams::Output::Error, words);
  } else {
    examination_->words = words;
  }
}

std::int32_t Admission::JudgeMachine(const MachineOpening& opened) {
  const cvn::String folder =
      examination_ == nullptr ? platform::machine::DefaultFolder() : examination_->machineFolder;
  const std::optional<MachineFault> fault = FindMachineFault(opened, folder);
  if (!fault) {
    return 0;
  }
  TraceLine(u"%s", fault->words);
  Tell(fault->words);
  return fault->exitCode;
}

std::int32_t Admission::ReadPatch(std::string* bytes) {
  if (!platform::paths::Exists(Path())) {
    Tell(u"Patch not found.");
    TraceLine(u"Input file not existing... exit");
    return kPatchScriptFileNotFound;
  }
  TraceLine(u"Decrypting");
  const auto code = static_cast<std::int32_t>(ReadPatchFile(Path(), bytes));
  if (code != 0) {
    Tell(cvn::Format(u"Failed to load the patch. Error: %d.", code));
    TraceLine(u"Error reading file '%s': %d", Path(), code);
  }
  return code;
}

std::int32_t Admission::ReadScript() {
  std::string plainText;
  {
    std::string bytes;
    const std::int32_t code = ReadPatch(&bytes);
    if (code != 0) {
      return code;
    }
    contentHash_ = PatchContentHash(bytes);
    if (DecryptPatch(bytes, &plainText) != kPatchDecrypted) {
      TraceLine(u"Error decrypting patch content");
      return gates_.RefuseUndecryptable(contentHash_);
    }
  }
  TakeText(plainText);
  return 0;
}

std::int32_t Admission::TakeScript(const MachineOpening& machineOpened, const std::string& script) {
  const std::int32_t code = JudgeMachine(machineOpened);
  if (code == 0) {
    TakeText(script);
  }
  return code;
}

void Admission::TakeText(const std::string& script) {
  // The text ends at its first zero byte.
  meta_.content = cvn::Utf8ToWide(script.c_str());
  ExtractPatchMetaData(&meta_);
  TraceLine(u"Running patch of type: %s, with id: %s", meta_.patchType, meta_.id);
  facts_.reporter.SetPatchId(meta_.id);
  for (const cvn::String& tag : meta_.tags) {
    facts_.tags.push_back(cvn::Format(u"patch:%s", tag));
  }
}

RunEnd Admission::LoadScript(std::optional<ScriptEngine>* engine) {
  if (examination_ != nullptr) {
    RefuseTraceFiles();  // a script names one that is opened before its commands are looked at
  }
  TraceLine(u"Loading decrypted file");
  engine->emplace(observer_);
  if (!(*engine)->ParseText(meta_.content)) {
    Tell(u"Failed to load patch.");
    TraceLine(u"Cannot parse file from '%s'\n", Path());
    engine->reset();
    return {.exitCode = kPatchCorruptScriptFile};
  }
  TraceLine(u"Prepare");
  const std::int32_t loaded =
      (*engine)->Load(settings_.scriptVariables, [this] { return gates_.IsExemptFromExpiry(); });
  facts_.reporter.SetExpires((*engine)->ExpiresAt());
  if (loaded != kLoadSuccess) {
    Tell(loaded == kLoadExpired ? u"Patch is no longer valid." : u"Failed to load patch.");
    TraceLine(u"Error running xml script from file '%s': %d \n", Path(), loaded);
    return {.exitCode = kPatchInvalidPatch,
            .detail = loaded == kLoadExpired ? kPatchExpired : cvn::StringView()};
  }
  return {};
}

}  // namespace tessel
