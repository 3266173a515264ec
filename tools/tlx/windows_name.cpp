#include "tools/tlx/windows_name.h"

#include <algorithm>
#include <iterator>

#include "support/format.h"
#include "support/numbers.h"

namespace tlx {
namespace {

constexpr cvn::StringView kReserved = u"<>:\"/\\|?*";
// Besides COM and LPT, which have a number.
constexpr cvn::StringView kDevices[] = {u"CON", u"PRN", u"AUX", u"NUL", u"CONIN$", u"CONOUT$"};
// Superscript digits count as digits.
constexpr cvn::StringView kPortNumbers = u"0123456789\u00B9\u00B2\u00B3";

bool IsSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// A name of bytes that are no UTF-8 comes with surrogates that have no partner.
bool IsWellFormed(cvn::StringView name) {
  for (std::size_t i = 0; i < name.size(); ++i) {
    const bool isPair = i + 1 < name.size() && name[i] >= 0xD800 && name[i] <= 0xDBFF &&
                        name[i + 1] >= 0xDC00 && name[i + 1] <= 0xDFFF;
    if (!isPair && IsSurrogate(name[i])) {
      return false;
    }
    i += isPair ? 1 : 0;
  }
  return true;
}

// Whether Windows opens a device under this name. An extension, and blanks before it, don't matter.
bool IsDevice(cvn::StringView name) {
  cvn::StringView stem = name.substr(0, name.find(u'.'));
  stem = stem.substr(0, stem.find_last_not_of(u' ') + 1);
  if (std::ranges::any_of(
          kDevices, [stem](cvn::StringView device) { return cvn::EqualNoCase(stem, device); })) {
    return true;
  }
  const cvn::StringView port = stem.substr(0, 3);
  return stem.size() == 4 && kPortNumbers.find(stem[3]) != cvn::StringView::npos &&
         (cvn::EqualNoCase(port, u"COM") || cvn::EqualNoCase(port, u"LPT"));
}

}  // namespace

cvn::String FaultOfName(cvn::StringView name) {
  if (!IsWellFormed(name)) {
    return u"the name isn't a text in UTF-8";
  }
  const auto control = std::ranges::find_if(name, [](char16_t unit) { return unit < 0x20; });
  if (control != name.end()) {
    return cvn::Format(u"no file of Windows has a control character (%d) in its name",
                       static_cast<int>(*control));
  }
  const std::size_t reserved = name.find_first_of(kReserved);
  if (reserved != cvn::StringView::npos) {
    return cvn::Format(u"no file of Windows has a '%s' in its name", name.substr(reserved, 1));
  }
  if (name.ends_with(u'.') || name.ends_with(u' ')) {
    return u"no file of Windows has a dot or a blank at the end of its name";
  }
  if (IsDevice(name)) {
    return u"the name is that of a device of Windows";
  }
  return {};
}

}  // namespace tlx
