#include "engine/builtin_variables.h"

#include "platform/paths.h"
#include "platform/version.h"

namespace tessel {
namespace {

struct SystemName {
  std::uint8_t major;
  std::uint8_t minor;
  cvn::StringView workstation;
  cvn::StringView server;
};

constexpr SystemName kSystemNames[] = {
    {5, 0, u"2000", u"2000Server"}, {5, 1, u"XP", u"XP"},
    {5, 2, u"XP64", u"2003"},       {6, 0, u"Vista", u"2008"},
    {6, 1, u"7", u"2008R2"},        {6, 2, u"8", u"8Server"},
    {6, 3, u"8.1", u"8.1Server"},   {10, 0, u"10.0", u"10.0Server"},
};

// The first build of Windows 10 that tells the native machine of a process.
constexpr std::uint32_t kFirstBuildWithNativeMachine = 10586;

cvn::StringView OsName() {
  const auto version = platform::version::Get();
  if (version) {
    for (const SystemName& name : kSystemNames) {
      // Only the low bytes of the version take part.
      if (name.major == (version->major & 0xFF) && name.minor == (version->minor & 0xFF)) {
        return version->workstation ? name.workstation : name.server;
      }
    }
  }
  return {};
}

cvn::StringView ArchitectureName() {
  if (platform::version::IsBuildAtLeast(kFirstBuildWithNativeMachine)) {
    const auto machine = platform::version::NativeMachine();
    if (machine == platform::version::kMachineI386) {
      return u"x86";
    }
    if (machine == platform::version::kMachineArm64) {
      return u"arm64";
    }
  }
  return u"x64";
}

// With a separator at its end.
cvn::String EngineFolder() {
  cvn::String folder = platform::paths::ModuleFileName();
  platform::paths::RemoveFileSpec(&folder);
  platform::paths::AddBackslash(&folder);
  return folder;
}

constexpr struct {
  cvn::StringView name;
  cvn::String (*value)();
} kVariables[] = {
    {u"currentdir", platform::paths::CurrentDirectory},
    {u"enginefname",
     [] { return cvn::String(platform::paths::FindFileName(platform::paths::ModuleFileName())); }},
    {u"enginedir", EngineFolder},
    {u"arch", [] { return cvn::String(ArchitectureName()); }},
    {u"os", [] { return cvn::String(OsName()); }},
    {u"error", [] { return cvn::String(u"0"); }},
};

}  // namespace

cvn::List<cvn::StringView> BuiltinVariables() {
  cvn::List<cvn::StringView> names = {kScriptFolderVariable, kRandomVariable};
  for (const auto& variable : kVariables) {
    names.push_back(variable.name);
  }
  return names;
}

void SetBuiltinVariables(VariableStore* variables) {
  for (const auto& variable : kVariables) {
    SetVariable(variable.name, variable.value(), variables);
  }
}

}  // namespace tessel
