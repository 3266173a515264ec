#include "platform/name_fold.h"

#include "platform/windows/wide.h"

namespace platform::paths {

cvn::String FoldName(cvn::StringView name) {
  // Without LCMAP_LINGUISTIC_CASING the rules are those of file systems, unit by unit.
  std::vector<wchar_t> folded(name.size());
  const auto* source = reinterpret_cast<const wchar_t*>(name.data());
  const int length = static_cast<int>(name.size());
  const int made = ::LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, source, length,
                                   folded.data(), length, nullptr, nullptr, 0);
  return made == length ? cvn::String(windows::ViewOf(folded.data(), folded.size()))
                        : cvn::String(name);
}

}  // namespace platform::paths
