#include "platform/formats/windows_path.h"

namespace platform::posix {

bool IsSeparator(char16_t character) { return character == u'\\' || character == u'/'; }

bool HasDrive(cvn::StringView path) {
  const char16_t letter = path.empty() ? u'\0' : static_cast<char16_t>(path[0] | 0x20);
  return path.size() >= 2 && path[1] == u':' && letter >= u'a' && letter <= u'z';
}

bool IsLiteral(cvn::StringView path) {
  return path.starts_with(u"\\\\?\\") || path.starts_with(u"\\??\\");
}

bool IsDevice(cvn::StringView path) {
  return path.size() >= 4 && IsSeparator(path[0]) && IsSeparator(path[1]) &&
         (path[2] == u'.' || path[2] == u'?') && IsSeparator(path[3]);
}

std::size_t RootLength(cvn::StringView path) {
  const std::size_t device = IsLiteral(path) || IsDevice(path) ? 4 : 0;
  if (HasDrive(path.substr(device))) {
    const std::size_t drive = device + 2;
    return drive < path.size() && IsSeparator(path[drive]) ? drive + 1 : drive;
  }
  const bool slash = !path.empty() && IsSeparator(path[0]);
  return slash && path.size() >= 2 && IsSeparator(path[1]) ? 2 : (slash ? 1 : 0);
}

}  // namespace platform::posix
