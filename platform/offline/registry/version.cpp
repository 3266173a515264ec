#include "platform/version.h"

#include "platform/offline/registry/registry_values.h"
#include "platform/registry.h"
#include "support/numbers.h"

namespace platform::version {
namespace {

using posix::ValueData;

constexpr cvn::StringView kWindows = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
constexpr cvn::StringView kProduct = u"SYSTEM\\CurrentControlSet\\Control\\ProductOptions";
constexpr cvn::StringView kEnvironment =
    u"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Environment";

// A value of the machine; one without a type when there is none.
ValueData Read(cvn::StringView path, cvn::StringView name) {
  ValueData value;
  registry::Key key;
  const registry::Key root(registry::Root::LocalMachine);
  if (registry::OpenKey(root, path, registry::kQueryValue, &key) != kSuccess ||
      registry::QueryValue(key, name, &value.type, &value.bytes) != kSuccess) {
    return {};
  }
  return value;
}

std::uint32_t ReadNumber(cvn::StringView digits) {
  return static_cast<std::uint32_t>(cvn::ReadInt32(digits));
}

}  // namespace

std::optional<WindowsVersion> Get() {
  WindowsVersion version{};
  version.workstation = Read(kProduct, u"ProductType").Text().value_or(u"WinNT") == u"WinNT";
  const auto major = Read(kWindows, u"CurrentMajorVersionNumber").Number();
  const auto minor = Read(kWindows, u"CurrentMinorVersionNumber").Number();
  if (major && minor) {
    version.major = *major;
    version.minor = *minor;
    return version;
  }
  // Before Windows 10 there is only a text, such as "6.1".
  const auto text = Read(kWindows, u"CurrentVersion").Text();
  const std::size_t dot = text ? text->find(u'.') : std::u16string::npos;
  if (dot == std::u16string::npos) {
    return std::nullopt;
  }
  version.major = ReadNumber(cvn::StringView(*text).substr(0, dot));
  version.minor = ReadNumber(cvn::StringView(*text).substr(dot + 1));
  return version;
}

bool IsBuildAtLeast(std::uint32_t build) {
  const auto text = Read(kWindows, u"CurrentBuildNumber").Text();
  return text && ReadNumber(*text) >= build;
}

std::optional<std::uint16_t> NativeMachine() {
  const auto name = Read(kEnvironment, u"PROCESSOR_ARCHITECTURE").Text();
  if (!name) {
    return std::nullopt;
  }
  if (cvn::EqualNoCase(*name, u"AMD64")) {
    return kMachineAmd64;
  }
  if (cvn::EqualNoCase(*name, u"ARM64")) {
    return kMachineArm64;
  }
  return cvn::EqualNoCase(*name, u"x86") ? std::optional(kMachineI386) : std::nullopt;
}

}  // namespace platform::version
