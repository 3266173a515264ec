#include "platform/offline/volume/extended_attributes.h"

#include <linux/limits.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "platform/linux/error_map.h"

namespace platform::posix {
namespace {

Code CodeOfReading() { return errno == E2BIG ? Code(kCantAccessFile) : CodeOf(errno, kReadFault); }

}  // namespace

Code ListExtended(int file, std::vector<std::string>* names) {
  names->clear();
  std::string list;
  ssize_t length = flistxattr(file, nullptr, 0);
  if (length > 0) {  // most files have none
    list.resize(XATTR_LIST_MAX);
    length = flistxattr(file, list.data(), list.size());
  }
  if (length < 0 && errno != EOPNOTSUPP) {
    return CodeOfReading();
  }
  std::string_view rest =
      std::string_view(list).substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  while (!rest.empty()) {
    names->emplace_back(rest.substr(0, rest.find('\0')));
    rest.remove_prefix(std::min(names->back().size() + 1, rest.size()));
  }
  return kSuccess;
}

Code ReadExtended(int file, const char* name, std::vector<std::byte>* value, bool* isThere) {
  // Of the largest size at once: ntfs-3g tells none, and each call is a message to it.
  static thread_local std::array<std::byte, XATTR_SIZE_MAX> buffer;
  const ssize_t size = fgetxattr(file, name, buffer.data(), buffer.size());
  *isThere = size >= 0;
  if (size < 0) {
    value->clear();
    return errno == ENODATA || errno == EOPNOTSUPP ? kSuccess : CodeOfReading();
  }
  value->assign(buffer.begin(), buffer.begin() + size);
  return kSuccess;
}

}  // namespace platform::posix
