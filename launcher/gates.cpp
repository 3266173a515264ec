#include "launcher/gates.h"

#include <string>

#include "launcher/machine_check.h"
#include "launcher/patch_file.h"
#include "platform/catalogs.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "platform/streams.h"
#include "support/format.h"
#include "trace/trace.h"
#include "trust/catalog_check.h"
#include "trust/locations.h"
#include "trust/path_key.h"
#include "trust/product.h"
#include "trust/protected_folder.h"

namespace tessel {
namespace {

constexpr cvn::StringView kPatchExtension = u".tlx";
constexpr cvn::StringView kExternal = u"external";
constexpr cvn::StringView kUpdate = u"update";

// Reason of the critical issue of a patch that was removed.
constexpr std::int32_t kPatchDeleted = 1637;

}  // namespace

std::int32_t Gates::RefuseUndecryptable(cvn::StringView contentHash) {
  const cvn::StringView extension = platform::paths::FindExtension(Path());
  TraceLine(u"Extension of file %s", extension);
  Refusal refusal{.exitCode = kPatchDecryptionFailed, .words = u"Failed to decrypt the patch."};
  cvn::String base;
  if (IsPathInTrustedLocation(Path(), &base) && extension == kPatchExtension &&
      WasReadBelow(base, contentHash)) {
    TraceLine(u"Patch to be removed");
    facts_.reporter.SetScriptPath(MakeRelativeToBase(Path(), base));
    RemovePatch();
    refusal.criticalReason = kPatchDeleted;
  }
  return Refuse(refusal);
}

void Gates::RemovePatch() {
  const platform::Code code =
      examination_ == nullptr ? platform::files::Delete(Path()) : platform::kSuccess;
  if (code != platform::kSuccess) {
    TraceLine(u"Deleting patch returned %d", code);
  }
}

void Gates::GoBy(GateWay way, cvn::StringView trustedFolder) {
  way_ = way;
  if (examination_ != nullptr) {
    examination_->way = way;
    examination_->trustedFolder = trustedFolder;
  }
}

std::int32_t Gates::Pass(cvn::StringView contentHash) {
  const std::optional<bool> isOld = IsPlatformOld();
  if (!isOld) {
    const MachineFault fault = UnknownVersionFault(
        examination_ == nullptr ? platform::machine::DefaultFolder() : examination_->machineFolder);
    TraceLine(u"%s", fault.words);
    return Refuse({.exitCode = fault.exitCode, .words = fault.words});
  }
  if (*isOld) {
    TraceLine(u"Old windows found, skip checks ...");
    facts_.tags.push_back(u"patch:skipCheck");
    GoBy(GateWay::Unchecked);
    return 0;
  }
  cvn::String base;
  if (IsPathInTrustedLocation(Path(), &base) && WasReadBelow(base, contentHash)) {
    TraceLine(u"Started from install path...");
    GoBy(GateWay::Install, base);
    return PassInstallPath(base);
  }
  TraceLine(u"Started from custom path...");
  GoBy(GateWay::External);
  return PassCustomPath(contentHash);
}

bool Gates::IsExemptFromExpiry() const {
  cvn::String base;
  const bool isTrusted = IsPathInTrustedLocation(Path(), &base);
  return isTrusted && way_ != GateWay::External;
}

// Whether what was read is what a trusted folder has. The path may lead elsewhere when it is judged
// than when it was read, so the file is read again by its final path, which has no links for others
// to change.
bool Gates::WasReadBelow(cvn::StringView base, cvn::StringView contentHash) const {
  const cvn::String key = NormalizePathKey(Path());
  const cvn::String baseKey = NormalizePathKey(base);
  std::string bytes;
  return !baseKey.Empty() && key.AsView().starts_with(baseKey.AsView()) &&
         ReadPatchFile(key, &bytes) == platform::kSuccess && PatchContentHash(bytes) == contentHash;
}

std::optional<bool> Gates::IsPlatformOld() const {
  using platform::catalogs::Support;
  const std::optional<Support> support = platform::catalogs::GetSupport();
  if (!support) {
    return std::nullopt;
  }
  if (support == Support::NoLibrary) {
    TraceLine(u"Cannot find dependency dll.");
  } else if (support == Support::NoFunctions) {
    TraceLine(u"Cannot find cat operation functions!");
  }
  return support != Support::Full;
}

std::int32_t Gates::PassCustomPath(cvn::StringView contentHash) {
  if (IsBusy()) {
    facts_.tags.push_back(u"patch:external");
    TraceLine(u"Another instance is running. Aborting...");
    return Refuse({.exitCode = kPatchAnotherInstanceRunning,
                   .criticalReason = kPatchAnotherInstanceRunning,
                   .words = u"Execution of another patch is in progress, could not apply current "
                            u"patch.",
                   .speaksFirst = true});
  }
  if (meta_.patchType != kExternal) {
    TraceLine(u"PatchType did not match. Aborting...");
    return Refuse({.exitCode = kPatchTypeMismatchForExternal,
                   .criticalReason = kPatchTypeMismatchForExternal,
                   .words = u"Patch type for external patches is invalid.",
                   .tellsParents = true,
                   .tellsFolders = true,
                   .tellsType = true});
  }
  facts_.tags.push_back(u"patch:external");
  return PassCatalog(contentHash);
}

bool Gates::IsBusy() {
  if (examination_ != nullptr ? !IsInstanceRunning() : IsInstanceFirst(&guard_)) {
    TraceLine(u"This is first instance running...");
    return false;
  }
  if (settings_.skipInstanceCheck) {
    TraceLine(u"Another instance is running, but skip option was set...");
    return false;
  }
  return true;
}

std::int32_t Gates::PassCatalog(cvn::StringView contentHash) {
  cvn::String reasonText;
  const std::int32_t result = AskCatalog(contentHash, &reasonText);
  TraceLine(u"CheckCatalog returned %d", result);
  if (result == kCatalogPassed) {
    // Where it fails, the programs of the patch don't start.
    platform::IgnoreError(platform::process::TrustFolder(ProtectedFolderPath()));
    return 0;
  }
  TraceLine(u"CheckCatalog FAILED!");
  return Refuse({.exitCode = kPatchIntegrityCheckFailed,
                 .criticalReason = result,
                 .words = cvn::Format(u"Integrity check failed. Reason: %s.", reasonText),
                 .speaksFirst = true});
}

std::int32_t Gates::AskCatalog(cvn::StringView contentHash, cvn::String* reasonText) {
  if (examination_ == nullptr) {
    return CheckCatalog(Path(), contentHash, reasonText);
  }
  examination_->catalog = JudgeCatalog(Path(), contentHash);
  *reasonText = examination_->catalog->reasonText;
  return examination_->catalog->answer;
}

std::int32_t Gates::PassInstallPath(cvn::StringView base) {
  if (meta_.patchType != kUpdate) {
    TraceLine(u"PatchType did not match. Reporting...");
    return Refuse({.exitCode = kPatchTypeMismatchForUpdate,
                   .criticalReason = kPatchTypeMismatchForUpdate,
                   .words = u"Patch type for update patches is invalid.",
                   .tellsParents = true,
                   .tellsType = true});
  }
  facts_.tags.push_back(u"patch:update");
  const std::int32_t rights =
      examination_ == nullptr ? CheckRightsForInstallPath() : kCallerAllowed;
  TraceLine(u"CheckRightsForInstallPath returned %d", rights);
  if (rights != kCallerAllowed) {
    return Refuse({.exitCode = rights,
                   .criticalReason = rights,
                   .words = u"Update patch is not executed with correct permissions.",
                   .tellsParents = true,
                   .tellsFolders = true});
  }
  facts_.reporter.SetScriptPath(MakeRelativeToBase(Path(), base));
  return 0;
}

std::int32_t Gates::Refuse(const Refusal& refusal) {
  if (examination_ != nullptr) {
    examination_->words = refusal.words;
    examination_->criticalReason = refusal.criticalReason;
    return refusal.exitCode;
  }
  const auto speak = [&refusal] {
    platform::streams::WriteLine(platform::streams::Output::Error, refusal.words);
  };
  if (refusal.speaksFirst) {
    speak();
  }
  if (refusal.criticalReason != 0) {
    ReportCriticalIssue(facts_, refusal.criticalReason);
  }
  if (refusal.tellsParents) {
    facts_.reporter.SetParentProcesses(CollectParentProcesses());
  }
  if (refusal.tellsFolders) {
    facts_.reporter.SetUpdateServicePath(GetServiceFolder(product::kUpdateService));
    facts_.reporter.SetInstallDir(GetInstallPath());
  }
  if (refusal.tellsType) {
    facts_.tags.push_back(cvn::Format(u"patch:%s", meta_.patchType));
  }
  if (!refusal.speaksFirst) {
    speak();
  }
  return refusal.exitCode;
}

}  // namespace tessel
