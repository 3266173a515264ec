#include "telemetry/reason_names.h"

#include <algorithm>
#include <span>

#include "support/utf.h"

namespace tessel {
namespace {

struct Reason {
  std::int32_t code;
  const char* name;
};

constexpr Reason kCriticalReasons[] = {
    {1169, "PatchTypeMismatchForExternal"},
    {1629, "PatchTypeMismatchForUpdate"},
    {2, "PatchCatalogFileNotFound"},
    {1643, "PatchPackageRejected"},
    {1006, "PatchInvalidCatalogFile"},
    {323, "PatchScriptFile.IntegrityCheckFailed"},
    {13, "PatchInvolvedFiles.IntegrityCheckFailed"},
    {5, "PatchUserNotSystem"},
    {1293, "PatchCannotGetParent"},
    {1618, "PatchAnotherInstanceRunning"},
    {127, "PatchInvalidParent"},
    {1637, "PatchDeleted"},
};

constexpr Reason kToolRanReasons[] = {
    {1169, "PatchTypeMismatchForExternal"},
    {1629, "PatchTypeMismatchForUpdate"},
    {6001, "PatchDecryptionFailed"},
    {87, "PatchInvalidArguments"},
    {3, "PatchScriptFileNotFound"},
    {323, "PatchIntegrityCheckFailed"},
    {30, "PatchScriptFileReadFault"},
    {1006, "PatchInvalidScriptFile"},
    {13, "PatchCorruptScriptFile"},
    {1636, "PatchInvalidPatch"},
    {1618, "PatchAnotherInstanceRunning"},
    {5, "PatchUserNotSystem"},
    {1293, "PatchCannotGetParent"},
    {127, "PatchInvalidParent"},
    {0, "success"},
};

std::string NameOf(std::span<const Reason> reasons, std::int32_t code) {
  const auto found = std::ranges::find(reasons, code, &Reason::code);
  return found != reasons.end() ? found->name : std::to_string(code);
}

}  // namespace

std::string CriticalReasonName(std::int32_t reason) { return NameOf(kCriticalReasons, reason); }

cvn::List<cvn::String> ReasonNames() {
  cvn::List<cvn::String> names = {kPatchCancelled, kPatchExpired, kRegistryWriteFault};
  for (const std::span<const Reason> reasons :
       {std::span<const Reason>(kCriticalReasons), std::span<const Reason>(kToolRanReasons)}) {
    for (const Reason& reason : reasons) {
      names.push_back(cvn::Utf8ToWide(reason.name));
    }
  }
  std::ranges::sort(names, {}, &cvn::String::AsView);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

std::string ToolRanReasonName(std::int32_t reason) { return NameOf(kToolRanReasons, reason); }

}  // namespace tessel
