#include "launcher/process_environment.h"

#include "platform/environment.h"
#include "platform/paths.h"
#include "platform/process.h"
#include "support/format.h"

namespace tessel {
namespace {

constexpr cvn::StringView kOldPath = u"CVN_AMS_OLD_PATH";
constexpr cvn::StringView kPath = u"PATH";

// A program path of this length was cut at MAX_PATH, and must not be searched.
constexpr std::size_t kCutPath = 260;

constexpr cvn::StringView kPrivileges[] = {
    u"SeLoadDriverPrivilege",           u"SeDebugPrivilege",       u"SeManageVolumePrivilege",
    u"SeProfileSingleProcessPrivilege", u"SeSecurityPrivilege",    u"SeShutdownPrivilege",
    u"SeSystemProfilePrivilege",        u"SeImpersonatePrivilege", u"SeIncreaseQuotaPrivilege",
    u"SeAssignPrimaryTokenPrivilege",
};

}  // namespace

// A variable that can't be set keeps its value: libraries are loaded by path, not through PATH.
void ApplyProcessEnvironment() {
  cvn::String folder = platform::paths::ModuleFileName();
  if (folder.Length() >= kCutPath || !platform::paths::RemoveFileSpec(&folder)) {
    folder.Clear();
  }
  const cvn::String path = cvn::Format(u"%s;%s", folder, platform::paths::SystemDirectory());
  if (platform::environment::Get(kOldPath).value_or(cvn::String()).Empty()) {
    platform::IgnoreError(platform::environment::Set(
        kOldPath, platform::environment::Get(kPath).value_or(cvn::String())));
  }
  platform::IgnoreError(platform::environment::Set(kPath, path));
}

void EnablePrivileges() { platform::process::EnablePrivileges(kPrivileges); }

}  // namespace tessel
