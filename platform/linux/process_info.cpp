#include "platform/linux/process_info.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "platform/linux/descriptor.h"

namespace platform::posix {
namespace {

std::string PathOf(std::uint32_t id, const char* name) {
  return "/proc/" + std::to_string(id) + "/" + name;
}

}  // namespace

std::string_view ReadProcessFile(std::uint32_t id, const char* name, std::span<char> buffer) {
  const Descriptor file(open(PathOf(id, name).c_str(), O_RDONLY | O_CLOEXEC));
  const ssize_t count = file.Get() < 0 ? -1 : read(file.Get(), buffer.data(), buffer.size());
  return count <= 0 ? std::string_view()
                    : std::string_view(buffer.data(), static_cast<std::size_t>(count));
}

Code ReadImageLink(std::uint32_t id, std::string* path) {
  constexpr std::string_view kDeleted = " (deleted)";
  char target[PATH_MAX + kDeleted.size()];
  const ssize_t length = readlink(PathOf(id, "exe").c_str(), target, sizeof(target));
  if (length < 0) {
    const bool isDenied = errno == EACCES || errno == EPERM;
    const bool isThere = access(PathOf(id, "").c_str(), F_OK) == 0;
    return isDenied ? kAccessDenied : (isThere ? kGenFailure : kInvalidParameter);
  }
  path->assign(target, static_cast<std::size_t>(length));
  if (path->ends_with(kDeleted) && access(path->c_str(), F_OK) != 0) {
    path->resize(path->size() - kDeleted.size());
  }
  return kSuccess;
}

}  // namespace platform::posix
