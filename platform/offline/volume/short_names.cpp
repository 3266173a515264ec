#include "platform/offline/volume/short_names.h"

#include <linux/magic.h>
#include <sys/statfs.h>
#include <sys/xattr.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/formats/names.h"
#include "platform/formats/short_name.h"
#include "platform/offline/volume/ntfs_security.h"

namespace platform::posix {
namespace {

constexpr const char* kShortName = "system.ntfs_dos_name";

// The driver finds short names by their exact spelling, which is in upper case.
bool MayBeAlias(std::string_view name) {
  constexpr std::size_t kLongest = std::size_t{12} * 3;  // bytes, as UTF-8 has them
  if (name.size() > kLongest || name.empty() || name.front() == '.') {
    return false;
  }
  const bool hasTilde = name.find('~') != std::string_view::npos;
  const bool hasLower =
      std::any_of(name.begin(), name.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  return (hasTilde || !hasLower) && IsShortForm(ToWide(name));
}

bool HasPossibleAlias(std::string_view path) {
  while (!path.empty()) {
    const std::size_t end = std::min(path.find('/'), path.size());
    if (MayBeAlias(path.substr(0, end))) {
      return true;
    }
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return false;
}

}  // namespace

bool ShortNameVolumes::Has(int folder, const struct stat& entry) {
  const std::lock_guard lock(mutex_);
  if (known_.contains(entry.st_dev)) {
    return true;
  }
  // ntfs-3g is a process of its own, as all drivers of this number are. The root has no name, and
  // so no short one, which isn't told by EOPNOTSUPP.
  struct statfs volume {};
  char value = '\0';
  const bool has = fstatfs(folder, &volume) == 0 && volume.f_type == FUSE_SUPER_MAGIC &&
                   (getxattr(PathThrough({folder, "."}).c_str(), kShortName, &value, 0) >= 0 ||
                    errno != EOPNOTSUPP);
  if (has) {
    known_.insert(entry.st_dev);
  }
  return has;
}

ShortNameVolumes& VolumesWithShortNames() {
  static ShortNameVolumes volumes;
  return volumes;
}

bool MayLeadThroughAlias(int folder, std::string_view path) {
  struct stat entry {};
  return HasPossibleAlias(path) && fstat(folder, &entry) == 0 &&
         VolumesWithShortNames().Has(folder, entry);
}

std::optional<std::u16string> ShortNameOf(FileAt file) {
  std::array<char, 64> value;
  const ssize_t length =
      lgetxattr(PathThrough(file).c_str(), kShortName, value.data(), value.size());
  if (length <= 0) {
    return std::nullopt;
  }
  std::u16string folded;
  AppendFolded(std::string_view(value.data(), static_cast<std::size_t>(length)), &folded);
  return IsShortForm(folded) ? std::optional(std::move(folded)) : std::nullopt;
}

KeptShortName::KeptShortName(const HostPath& place) : place_(place) {
  if (place.entry.st_mode == 0 ||
      DescriptorAttribute(place.At().folder, place.entry.st_dev) == nullptr) {
    return;
  }
  std::array<char, 64> value;
  const ssize_t length =
      lgetxattr(PathThrough(place.At()).c_str(), kShortName, value.data(), value.size());
  name_.assign(value.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

void KeptShortName::GiveBack() const {
  if (!name_.empty()) {
    lsetxattr(PathThrough(place_.At()).c_str(), kShortName, name_.data(), name_.size(), 0);
  }
}

}  // namespace platform::posix
