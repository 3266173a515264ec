#include "platform/windows/wide.h"

namespace platform::windows {
namespace {

// CreateDirectoryW stops 12 characters before the others do: a name of 8.3 form must fit behind its
// path.
constexpr std::size_t kClassicLimit = MAX_PATH - 12;

constexpr cvn::StringView kPrefix = u"\\\\?\\";
constexpr cvn::StringView kSharePrefix = u"\\\\?\\UNC";  // before the second '\' of \\server

bool HasPrefix(cvn::StringView path) {
  return path.starts_with(kPrefix) || path.starts_with(u"\\\\.\\");
}

}  // namespace

cvn::PathString PathForCall(cvn::StringView path) {
  if (path.size() < kClassicLimit || HasPrefix(path)) {
    return path;
  }
  const cvn::PathString text(path);
  const std::optional<cvn::String> full = ReadText<1024>([&](wchar_t* buffer, DWORD size) {
    return ::GetFullPathNameW(Wide(text), size, buffer, nullptr);
  });
  if (!full || HasPrefix(*full)) {
    return full ? cvn::PathString(*full) : text;
  }
  const bool isShare = full->AsView().starts_with(u"\\\\");
  cvn::PathString prefixed(isShare ? kSharePrefix : kPrefix);
  prefixed.Append(full->AsView().substr(isShare ? 1 : 0));
  return prefixed;
}

cvn::String WithoutLongPrefix(cvn::StringView path) {
  if (!path.starts_with(kSharePrefix)) {
    return path.substr(path.starts_with(kPrefix) ? kPrefix.size() : 0);
  }
  cvn::String share(u"\\");
  share.Append(path.substr(kSharePrefix.size()));
  return share;
}

}  // namespace platform::windows
