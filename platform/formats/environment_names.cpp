#include "platform/formats/environment_names.h"

#include <algorithm>

#include "support/numbers.h"

namespace platform {
namespace {

constexpr cvn::StringView kNames[] = {
    u"ALLUSERSPROFILE",
    u"APPDATA",
    u"CommonProgramFiles",
    u"CommonProgramFiles(x86)",
    u"CommonProgramW6432",
    u"COMPUTERNAME",
    u"ComSpec",
    u"DriverData",
    u"HOMEDRIVE",
    u"HOMEPATH",
    u"LOCALAPPDATA",
    u"NUMBER_OF_PROCESSORS",
    u"OS",
    u"PATHEXT",
    u"PROCESSOR_ARCHITECTURE",
    u"ProgramData",
    u"ProgramFiles",
    u"ProgramFiles(x86)",
    u"ProgramW6432",
    u"PUBLIC",
    u"SystemDrive",
    u"SystemRoot",
    u"TEMP",
    u"TMP",
    u"USERDOMAIN",
    u"USERNAME",
    u"USERPROFILE",
    u"windir",
};

}  // namespace

std::span<const cvn::StringView> WindowsEnvironmentNames() { return kNames; }

bool IsWindowsEnvironmentName(cvn::StringView name) {
  return std::ranges::any_of(
      kNames, [name](cvn::StringView known) { return cvn::EqualNoCase(known, name); });
}

}  // namespace platform
