#include "platform/offline/volume/short_names.h"

#include <sys/xattr.h>

#include <algorithm>
#include <array>

#include "platform/formats/names.h"
#include "platform/formats/short_name.h"
#include "platform/linux/volume_traits.h"

namespace platform::posix {
namespace {

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

bool MayLeadThroughAlias(int folder, std::string_view path) {
  return HasPossibleAlias(path) && HasShortNames(folder);
}

std::optional<std::u16string> ShortNameOf(FileAt file) {
  std::array<char, 64> value;
  const ssize_t length =
      lgetxattr(PathThrough(file).c_str(), kShortNameAttribute, value.data(), value.size());
  if (length <= 0) {
    return std::nullopt;
  }
  std::u16string folded;
  AppendFolded(std::string_view(value.data(), static_cast<std::size_t>(length)), &folded);
  return IsShortForm(folded) ? std::optional(std::move(folded)) : std::nullopt;
}

KeptShortName::KeptShortName(const HostPath& place) : place_(place) {
  if (place.entry.st_mode == 0 || DescriptorAttribute(place.At().folder) == nullptr) {
    return;
  }
  std::array<char, 64> value;
  const ssize_t length =
      lgetxattr(PathThrough(place.At()).c_str(), kShortNameAttribute, value.data(), value.size());
  name_.assign(value.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
}

void KeptShortName::GiveBack() const {
  if (!name_.empty()) {
    lsetxattr(PathThrough(place_.At()).c_str(), kShortNameAttribute, name_.data(), name_.size(), 0);
  }
}

}  // namespace platform::posix
