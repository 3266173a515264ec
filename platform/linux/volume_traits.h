// What volumes can't do, and by which names their drivers hand things over: learnt once a volume,
// where each file would tell the same.
#pragma once

#include <atomic>
#include <optional>

namespace platform::posix {

// Of one volume, known as long as the process lives. Another one that is mounted in its place has
// traits of its own where the host numbers mounts for good (Linux 6.8); before that a number may be
// given again, so what a stale no would break is asked anew there.
class VolumeTraits {
 public:
  // Those of the volume on which an open object lies, which may be open as a place only. The
  // volume's driver isn't asked. What is learnt of an object that can't be told is forgotten.
  static VolumeTraits& Of(int opened);

  explicit VolumeTraits(bool isNumberedForGood) : isNumberedForGood_(isNumberedForGood) {}

  // Set to false by the first failure that means so.
  std::atomic<bool> makesUnnamed = true;   // files by O_TMPFILE
  std::atomic<bool> renamesToFree = true;  // by RENAME_NOREPLACE

 private:
  friend const char* DescriptorAttribute(int opened);
  friend bool HasShortNames(int opened);
  enum class Answer { Unknown, No, Yes };

  const bool isNumberedForGood_;
  std::atomic<const char*> descriptor_ = nullptr;  // empty for none, null where it isn't known
  std::atomic<Answer> shortNames_ = Answer::Unknown;
};

// The extended attribute of a file's short name, as ntfs-3g has it. It is missing where a file has
// none, or where another entry leads to the same file.
inline constexpr const char* kShortNameAttribute = "system.ntfs_dos_name";

// The extended attribute of a file's word of attributes, which both drivers for NTFS have. Whether
// a volume has it, the reading of each word tells at no cost but where there are such words.
inline constexpr const char* kAttributeWord = "system.ntfs_attrib_be";

// The extended attribute by which the driver hands over descriptors on the volume of what is
// `opened`: "system.ntfs_acl" of ntfs-3g, "system.ntfs_security" of the kernel's driver. Null where
// the volume is not NTFS.
const char* DescriptorAttribute(int opened);

// Whether the driver of the volume of an open object is a program, as that of ntfs-3g is, which
// each call has to wait for. Nothing where that can't be told.
std::optional<bool> IsServedByProgram(int opened);

// Whether the volume of an open object is one of ntfs-3g, which has short names. The kernel's own
// driver shows none, nor does an overlay over such a volume.
bool HasShortNames(int opened);

}  // namespace platform::posix
