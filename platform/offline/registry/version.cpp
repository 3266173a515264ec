#include "platform/version.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/offline/registry/registry.h"
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

using Numbers = std::pair<std::uint32_t, std::uint32_t>;  // major and minor

Code Read(cvn::StringView path, cvn::StringView name, ValueData* value) {
  return posix::ReadValue(registry::Root::LocalMachine, path, name, value);
}

std::optional<std::u16string> ReadText(cvn::StringView path, cvn::StringView name) {
  return posix::ReadText(registry::Root::LocalMachine, path, name);
}

std::uint32_t ReadNumber(cvn::StringView digits) {
  return static_cast<std::uint32_t>(cvn::ReadInt32(digits));
}

// Nothing but digits, and few enough for the number to be one.
bool IsNumber(cvn::StringView text) {
  constexpr std::size_t kMostDigits = 9;
  return !text.empty() && text.size() <= kMostDigits &&
         text.find_first_not_of(u"0123456789") == cvn::StringView::npos;
}

// Of the text that every version has, such as "6.1".
std::optional<Numbers> NumbersInText() {
  const std::u16string text = ReadText(kWindows, u"CurrentVersion").value_or(std::u16string());
  const cvn::StringView whole(text);
  const std::size_t dot = std::min(whole.find(u'.'), whole.size());
  const cvn::StringView minor = whole.substr(std::min(dot + 1, whole.size()));
  if (!IsNumber(whole.substr(0, dot)) || !IsNumber(minor)) {
    return std::nullopt;
  }
  return Numbers(ReadNumber(whole.substr(0, dot)), ReadNumber(minor));
}

// From Windows 10 on the text stays what it was before, and two numbers tell the version. A damaged
// one must not pass for an older Windows, which has none.
std::optional<Numbers> ReadNumbers() {
  ValueData major;
  ValueData minor;
  const Code majorCode = Read(kWindows, u"CurrentMajorVersionNumber", &major);
  const Code minorCode = Read(kWindows, u"CurrentMinorVersionNumber", &minor);
  if (majorCode == kFileNotFound && minorCode == kFileNotFound) {
    return NumbersInText();
  }
  const auto majorNumber = major.Number();
  const auto minorNumber = minor.Number();
  return majorNumber && minorNumber ? std::optional(Numbers(*majorNumber, *minorNumber))
                                    : std::nullopt;
}

}  // namespace

std::optional<WindowsVersion> Get() {
  const posix::RegistryLook look;
  const std::optional<Numbers> numbers = ReadNumbers();
  // Zeros are what is left of data, and no Windows.
  if (!numbers || numbers->first == 0) {
    return std::nullopt;
  }
  const auto type = ReadText(kProduct, u"ProductType");
  return WindowsVersion{numbers->first, numbers->second, type.value_or(u"WinNT") == u"WinNT"};
}

bool IsBuildAtLeast(std::uint32_t build) {
  const auto text = ReadText(kWindows, u"CurrentBuildNumber");
  return text && ReadNumber(*text) >= build;
}

std::optional<std::uint16_t> NativeMachine() {
  const auto name = ReadText(kEnvironment, u"PROCESSOR_ARCHITECTURE");
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
