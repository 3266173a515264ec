#include "platform/linux/other_accounts.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string_view>
#include <vector>

#include "platform/linux/descriptor.h"
#include "platform/linux/host_view.h"

namespace platform::posix {
namespace {

// The overflow user of the kernel (Documentation/admin-guide/sysctl/fs.rst: overflowuid).
constexpr uid_t kHiddenOwner = 65534;

// Who can't be told from root is taken for root only where nothing that others do is seen.
bool IsTrusted(uid_t owner) {
  return owner == 0 || owner == geteuid() || (CurrentView().hidesOwners && owner == kHiddenOwner);
}

bool IsOwnersGroup(const struct stat& entry) {
  const passwd* user = getpwuid(entry.st_uid);
  if (user == nullptr || user->pw_gid != entry.st_gid) {
    return false;
  }
  const std::string name = user->pw_name;
  const group* record = getgrgid(entry.st_gid);
  if (record == nullptr || name != record->gr_name) {
    return false;
  }
  for (char* const* member = record->gr_mem; *member != nullptr; ++member) {
    if (name != *member) {
      return false;
    }
  }
  return true;
}

// Whether others can give the name of `entry` in `folder` to something else.
bool CanOthersReplace(const struct stat& folder, const struct stat& entry) {
  const bool isKept = (folder.st_mode & S_ISVTX) != 0 && IsTrusted(entry.st_uid);
  return !IsTrusted(folder.st_uid) || (CanOthersWrite(folder) && !isKept);
}

// Puts the names of `path` on the stack, the first one on top.
void PushNames(std::string_view path, std::vector<std::string>* names) {
  while (!path.empty()) {
    const std::size_t slash = path.rfind('/');
    const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
    if (begin < path.size() && path.substr(begin) != ".") {
      names->emplace_back(path.substr(begin));
    }
    path = path.substr(0, begin == 0 ? 0 : begin - 1);
  }
}

}  // namespace

bool CanOthersWrite(const struct stat& entry) {
  return (entry.st_mode & S_IWOTH) != 0 ||
         ((entry.st_mode & S_IWGRP) != 0 && !IsOwnersGroup(entry));
}

bool CanOthersRedirect(const std::string& path) {
  constexpr int kMostLinks = 40;  // as the kernel has it
  std::vector<std::string> names;
  PushNames(path, &names);
  Descriptor at(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (int links = 0; !names.empty() && links < kMostLinks;) {
    const std::string name = names.back();
    names.pop_back();
    Descriptor next(openat(at.Get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat folder {};
    struct stat entry {};
    const bool isMissing = next.Get() < 0 && errno == ENOENT && names.empty();
    if (fstat(at.Get(), &folder) != 0 || (fstat(next.Get(), &entry) != 0 && !isMissing)) {
      return true;
    }
    if (isMissing) {
      return !IsTrusted(folder.st_uid) || CanOthersWrite(folder);
    }
    if (name != ".." && CanOthersReplace(folder, entry)) {
      return true;
    }
    if (!S_ISLNK(entry.st_mode)) {
      at.Reset(next.Release());
      continue;
    }
    ++links;
    char target[PATH_MAX];
    const ssize_t length = readlinkat(next.Get(), "", target, sizeof(target));
    if (length <= 0) {
      return true;
    }
    PushNames({target, static_cast<std::size_t>(length)}, &names);
    if (target[0] == '/') {
      at.Reset(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
  }
  return !names.empty();
}

}  // namespace platform::posix
