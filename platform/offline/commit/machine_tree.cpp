#include "platform/offline/commit/machine_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "platform/formats/names.h"
#include "platform/linux/error_map.h"
#include "platform/linux/open_below.h"

namespace platform::posix {

bool StaysBelow(std::string_view path) {
  if (path.empty()) {
    return true;
  }
  while (true) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view name = path.substr(0, end);
    if (name.empty() || name == "." || name == ".." || name.find('\0') != std::string_view::npos) {
      return false;
    }
    if (end == path.size()) {
      return true;
    }
    path.remove_prefix(end + 1);
  }
}

bool ToPathBelow(cvn::StringView path, std::string* below) {
  constexpr cvn::StringView kDrive = u"C:\\";
  below->clear();
  if (!path.starts_with(kDrive)) {
    return false;
  }
  AppendHostText(path.substr(kDrive.size()), below);
  const bool hasSlash = below->find('/') != std::string::npos;
  std::ranges::replace(*below, '\\', '/');
  return !hasSlash && StaysBelow(*below);
}

std::string_view FolderOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return path.substr(0, slash == std::string_view::npos ? 0 : slash);
}

Code MachineTree::Find(std::string_view path, FileAt* place) {
  const std::string_view folder = FolderOf(path);
  const std::size_t start = folder.empty() ? 0 : folder.size() + 1;
  name_ = path.empty() ? "." : path.substr(start);
  if (folder.empty()) {
    *place = {root_, name_.c_str()};
    return kSuccess;
  }
  if (known_.Get() < 0 || folder != folder_) {
    folder_ = folder;
    known_ = Descriptor(OpenBelow(root_, folder_, O_PATH | O_DIRECTORY));
    struct stat known {};
    struct stat root {};
    if (known_.Get() < 0 || fstat(known_.Get(), &known) != 0 || fstat(root_, &root) != 0) {
      return CodeOf(errno);
    }
    if (known.st_dev != root.st_dev) {
      known_ = Descriptor();
      return kNotSameDevice;
    }
  }
  *place = {known_.Get(), name_.c_str()};
  return kSuccess;
}

}  // namespace platform::posix
