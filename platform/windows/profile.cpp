#include "platform/profile.h"

#include <vector>

#include "platform/windows/wide.h"

namespace platform::profile {

using windows::PathForCall;
using windows::Wide;

cvn::String ReadString(cvn::StringView section, cvn::StringView key, cvn::StringView fallback,
                       std::size_t capacity, cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  std::vector<wchar_t> buffer(capacity);
  ::GetPrivateProfileStringW(Wide(section), Wide(key), Wide(fallback), buffer.data(),
                             static_cast<DWORD>(capacity), Wide(PathForCall(path)));
  // The text ends at its first zero, which the file may hold before the end of the value.
  return windows::ViewOf(buffer.data(), static_cast<std::size_t>(::lstrlenW(buffer.data())));
}

Code WriteString(cvn::StringView section, cvn::StringView key, cvn::StringView value,
                 cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  return lastError.Outcome(::WritePrivateProfileStringW(Wide(section), Wide(key), Wide(value),
                                                        Wide(PathForCall(path))) != 0);
}

cvn::String DecodeAnsi(std::string_view bytes) {
  constexpr std::size_t kLargest = 0x7FFFFFFF;
  bytes = bytes.substr(0, kLargest);
  std::vector<wchar_t> text(bytes.size());
  const int length = ::MultiByteToWideChar(CP_ACP, 0, bytes.data(), static_cast<int>(bytes.size()),
                                           text.data(), static_cast<int>(text.size()));
  return windows::ViewOf(text.data(), static_cast<std::size_t>(length));
}

}  // namespace platform::profile
