#include "platform/formats/device_names.h"

#include <algorithm>
#include <string>

#include "platform/formats/names.h"
#include "platform/formats/windows_path.h"

namespace platform::posix {
namespace {

// The last name of a path; it is empty behind a separator.
cvn::StringView LastName(cvn::StringView path) {
  const std::size_t separator = path.find_last_of(u"\\/");
  if (separator != cvn::StringView::npos) {
    return path.substr(separator + 1);
  }
  return path.substr(HasDrive(path) ? 2 : 0);
}

// The device that has exactly this name.
Device DeviceNamed(cvn::StringView name) {
  constexpr cvn::StringView kDigits = u"123456789\u00b9\u00b2\u00b3";
  constexpr std::size_t kLongest = 7;
  if (name.size() < 3 || name.size() > kLongest) {
    return Device::None;
  }
  const std::u16string folded = Folded(name);
  const cvn::StringView text(folded);
  if (text == u"NUL") {
    return Device::Null;
  }
  constexpr cvn::StringView kOthers[] = {u"CON", u"PRN", u"AUX", u"CONIN$", u"CONOUT$"};
  const bool isPort = text.size() == 4 && (text.starts_with(u"COM") || text.starts_with(u"LPT")) &&
                      kDigits.find(text[3]) != cvn::StringView::npos;
  return isPort || std::find(std::begin(kOthers), std::end(kOthers), text) != std::end(kOthers)
             ? Device::Other
             : Device::None;
}

cvn::StringView WithoutEnd(cvn::StringView name, cvn::StringView ignored) {
  return name.substr(0, name.find_last_not_of(ignored) + 1);
}

}  // namespace

cvn::StringView DeviceNameIn(cvn::StringView path) {
  const cvn::StringView name = LastName(path);
  return WithoutEnd(name.substr(0, name.find_first_of(u".:")), u" ");
}

Device DeviceOf(cvn::StringView path) { return DeviceNamed(DeviceNameIn(path)); }

Device DeviceSinceWindows11(cvn::StringView path) {
  const cvn::StringView name = LastName(path);
  const Device device = DeviceNamed(WithoutEnd(name, u". :"));
  return device == Device::Null || name.size() == path.size() ? device : Device::None;
}

}  // namespace platform::posix
