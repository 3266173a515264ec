// The gates between a patch that was read and its script.
#pragma once

#include <cstdint>
#include <optional>

#include "launcher/command_line.h"
#include "launcher/examination.h"
#include "launcher/patch_metadata.h"
#include "launcher/run_reports.h"
#include "support/string.h"
#include "trust/instance_guard.h"

namespace tessel {

// Exit codes of the refusals, besides those of CheckRightsForInstallPath.
inline constexpr std::int32_t kPatchIntegrityCheckFailed = 323;
inline constexpr std::int32_t kPatchTypeMismatchForExternal = 1169;
inline constexpr std::int32_t kPatchAnotherInstanceRunning = 1618;
inline constexpr std::int32_t kPatchTypeMismatchForUpdate = 1629;
inline constexpr std::int32_t kPatchDecryptionFailed = 6001;

// Judges a patch by where it lies: one in a trusted location by who started the program, any other
// by its catalog. The instance guard that it may take is held until the end of its life.
class Gates {
 public:
  // `facts` gets what the gates find out. With `examination`, which is null for a run, the patch is
  // only judged. All arguments outlive this.
  Gates(const LaunchSettings& settings, const PatchMetaData& meta, RunFacts* facts,
        Examination* examination)
      : settings_(settings), meta_(meta), facts_(*facts), examination_(examination) {}

  // For a patch that can't be decrypted: removes it from a trusted location. Gives the exit code.
  // Here and below, `contentHash` is that of the patch as it was read, as CheckCatalog takes it.
  std::int32_t RefuseUndecryptable(cvn::StringView contentHash);

  // 0, or the exit code of the gate that refused.
  std::int32_t Pass(cvn::StringView contentHash);

  // Whether the patch is valid whatever its dates say, as one in a trusted location is. Asks anew
  // where it lies, but a patch that Pass has judged by its catalog stays an external one, wherever
  // its path leads by now.
  bool IsExemptFromExpiry() const;

 private:
  // What a refusal tells, and to whom.
  struct Refusal {
    std::int32_t exitCode = 0;
    std::int32_t criticalReason = 0;  // of the issue that somebody should look at; 0 for none
    cvn::String words = {};           // on standard error
    bool speaksFirst = false;         // the words come before all else, not behind it
    bool tellsParents = false;
    bool tellsFolders = false;
    bool tellsType = false;
  };

  const cvn::String& Path() const { return *settings_.patchFilePath; }
  // Nothing when the platform doesn't tell.
  std::optional<bool> IsPlatformOld() const;
  std::int32_t PassCustomPath(cvn::StringView contentHash);
  std::int32_t PassInstallPath(cvn::StringView base);
  std::int32_t PassCatalog(cvn::StringView contentHash);
  std::int32_t AskCatalog(cvn::StringView contentHash, cvn::String* reasonText);
  void RemovePatch();
  void GoBy(GateWay way, cvn::StringView trustedFolder = {});
  bool WasReadBelow(cvn::StringView base, cvn::StringView contentHash) const;
  bool IsBusy();
  std::int32_t Refuse(const Refusal& refusal);

  const LaunchSettings& settings_;
  const PatchMetaData& meta_;
  RunFacts& facts_;
  Examination* const examination_;
  InstanceGuard guard_;
  GateWay way_ = GateWay::External;
};

}  // namespace tessel
