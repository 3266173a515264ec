#include "platform/linux/volume_traits.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>

namespace platform::posix {
namespace {

// Since Linux 6.8: the number of a mount that no later one gets. Earlier kernels pass over it.
constexpr unsigned kMountForGood = 0x4000U;

// What is open, also as a place only, for the calls that take no such descriptor.
std::string PathOf(int opened) { return "/proc/self/fd/" + std::to_string(opened); }

}  // namespace

VolumeTraits& VolumeTraits::Of(int opened) {
  using Key = std::tuple<unsigned, unsigned, std::uint64_t>;
  static std::mutex mutex;
  static std::map<Key, VolumeTraits> known;
  struct statx status {};
  // What doesn't change isn't asked of the driver: on ntfs-3g that would be a message.
  if (statx(opened, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_MNT_ID | kMountForGood,
            &status) != 0) {
    static thread_local std::optional<VolumeTraits> unknown;
    return unknown.emplace(false);
  }
  const std::lock_guard lock(mutex);
  return known
      .try_emplace(Key(status.stx_dev_major, status.stx_dev_minor, status.stx_mnt_id),
                   (status.stx_mask & kMountForGood) != 0)
      .first->second;
}

const char* DescriptorAttribute(int opened) {
  VolumeTraits& traits = VolumeTraits::Of(opened);
  const char* known = traits.descriptor_;
  if (known != nullptr) {
    return *known == '\0' ? nullptr : known;
  }
  for (const char* name : {"system.ntfs_acl", "system.ntfs_security"}) {
    if (getxattr(PathOf(opened).c_str(), name, nullptr, 0) >= 0) {
      traits.descriptor_ = name;
      return name;
    }
    if (errno != EOPNOTSUPP && errno != ENODATA) {
      return nullptr;  // says nothing of the volume
    }
  }
  traits.descriptor_ = "";
  return nullptr;
}

std::optional<bool> IsServedByProgram(int opened) {
  struct statfs volume {};
  return fstatfs(opened, &volume) == 0 ? std::optional(volume.f_type == FUSE_SUPER_MAGIC)
                                       : std::nullopt;
}

bool HasShortNames(int opened) {
  using Answer = VolumeTraits::Answer;
  VolumeTraits& traits = VolumeTraits::Of(opened);
  const Answer known = traits.shortNames_;
  if (known != Answer::Unknown) {
    return known == Answer::Yes;
  }
  const std::optional<bool> isByProgram = IsServedByProgram(opened);
  if (!isByProgram) {
    return false;
  }
  // The root has no name, and so no short one, which isn't told by EOPNOTSUPP.
  char value = '\0';
  const bool has =
      *isByProgram && (getxattr(PathOf(opened).c_str(), kShortNameAttribute, &value, 0) >= 0 ||
                       errno != EOPNOTSUPP);
  if (has || traits.isNumberedForGood_) {
    traits.shortNames_ = has ? Answer::Yes : Answer::No;
  }
  return has;
}

}  // namespace platform::posix
