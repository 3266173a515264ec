#include "platform/offline/process/file_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <sstream>
#include <string_view>
#include <utility>

#include "platform/linux/file_names.h"
#include "platform/linux/same_file.h"

namespace platform::posix {
namespace {

struct Mount {
  std::string fileSystem;
  std::string root;  // what of the file system is mounted
  std::string point;
};

std::string WithoutSlashAtEnd(std::string path) {
  if (path.ends_with('/')) {
    path.pop_back();
  }
  return path;
}

// The kernel writes blanks, tabs, line ends and backslashes in a path as "\040".
std::string Unescaped(std::string_view text) {
  std::string path;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      const int octal = (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
      path += static_cast<char>(octal);
      i += 3;
    } else {
      path += text[i];
    }
  }
  return WithoutSlashAtEnd(std::move(path));
}

// The number of the mount through which something was opened; empty when the host doesn't tell.
std::string MountOf(int descriptor) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(descriptor));
  std::string name;
  std::string value;
  while (info >> name >> value) {
    if (name == "mnt_id:") {
      return value;
    }
  }
  return {};
}

bool FindMount(const std::string& number, Mount* mount) {
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string own;
    std::string parent;
    std::string root;
    std::string point;
    if (fields >> own >> parent >> mount->fileSystem >> root >> point && own == number) {
      mount->root = Unescaped(root);
      mount->point = Unescaped(point);
      return true;
    }
  }
  return false;
}

// The path of what is open; empty when it has none that leads there.
std::string PathOf(int descriptor) {
  char target[PATH_MAX];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), target, sizeof(target));
  if (length <= 0 || length == ssize_t{sizeof(target)} || target[0] != '/') {
    return {};
  }
  std::string path(target, static_cast<std::size_t>(length));
  struct stat opened {};
  struct stat named {};
  const bool isThere = fstat(descriptor, &opened) == 0 && lstat(path.c_str(), &named) == 0 &&
                       IsSameFile(opened, named);
  return isThere ? path : std::string();
}

}  // namespace

bool PlaceOf(int descriptor, FilePlace* place) {
  Mount mount;
  place->path = PathOf(descriptor);
  if (place->path.empty() || !FindMount(MountOf(descriptor), &mount) ||
      !IsWithin(place->path, mount.point)) {
    return false;
  }
  place->path = WithoutSlashAtEnd(std::move(place->path));
  place->fileSystem = mount.fileSystem;
  place->inside = mount.root + place->path.substr(std::min(mount.point.size(), place->path.size()));
  return true;
}

bool IsSameOrBelow(const FilePlace& place, const FilePlace& folder) {
  return place.fileSystem == folder.fileSystem && IsWithin(place.inside, folder.inside);
}

}  // namespace platform::posix
