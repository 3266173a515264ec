#include "platform/offline/volume/share_locks.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/linux/volume_traits.h"
#include "platform/random.h"

namespace platform::posix {
namespace {

using files::Access;
using files::Share;

// What an open file does and what it denies to others is published by locks on bytes far beyond the
// content of any file: each has a range, in which every open file concerned locks one byte. A
// process that opens a file publishes first and looks for contradictions then, so that of two that
// open it at the same time at least one sees the other.
enum Range : unsigned { kReads = 1, kWrites = 2, kDeniesReading = 4, kDeniesWriting = 8 };
constexpr Range kRanges[] = {kReads, kWrites, kDeniesReading, kDeniesWriting};

constexpr off_t kFarBeyond = off_t{1} << 62;
constexpr off_t kRangeLength = off_t{1} << 32;

// Of the host's locks: a longer one takes more time than the file itself.
constexpr std::size_t kLongestList = std::size_t{64} * 1024;

struct flock LockOn(Range range, off_t offset, off_t length, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = kFarBeyond + static_cast<off_t>(range) * kRangeLength + offset;
  lock.l_len = length;
  return lock;
}

// Another's lock, of either type, lies in one of the ranges from `first` to `last`.
bool IsPublished(int descriptor, Range first, Range last) {
  struct flock lock = LockOn(first, 0, (last - first + 1) * kRangeLength, F_WRLCK);
  return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

unsigned RangesOf(Access access, Share share) {
  unsigned ranges = access == Access::Read    ? kReads
                    : access == Access::Write ? kWrites
                                              : kReads | kWrites;
  if (share == Share::None || share == Share::Read) {
    ranges |= kDeniesWriting;
  }
  if (share == Share::None) {
    ranges |= kDeniesReading;
  }
  return ranges;
}

Range OppositeOf(Range range) {
  return static_cast<Range>(range <= kWrites ? range << 2 : range >> 2);
}

// The host's list of locks once that was asked for, which is made anew for each reading from its
// start. Each thread has its own, since a reading takes more than one call.
thread_local Descriptor listOfLocks;

// Whether the host lists its locks, and none of this file.
bool IsListedWithout(const struct stat& entry) {
  if (listOfLocks.Get() < 0) {
    listOfLocks.Reset(open("/proc/locks", O_RDONLY | O_CLOEXEC));
  }
  char wanted[48];
  std::snprintf(wanted, sizeof(wanted), " %02x:%02x:%ju ", major(entry.st_dev), minor(entry.st_dev),
                static_cast<std::uintmax_t>(entry.st_ino));
  // All of it, in which a line may lie across two pieces.
  std::string list;
  std::array<char, 4096> piece;
  for (;;) {
    const ssize_t length =
        pread(listOfLocks.Get(), piece.data(), piece.size(), static_cast<off_t>(list.size()));
    if (length == 0) {
      return list.find(wanted) == std::string::npos;
    }
    if (length < 0 || list.size() > kLongestList) {
      return false;
    }
    list.append(piece.data(), static_cast<std::size_t>(length));
  }
}

}  // namespace

Code TakeShare(int descriptor, Access access, Share share) {
  const unsigned ranges = RangesOf(access, share);
  // Read locks go together, but need a descriptor that reads; write locks get a byte of their own
  // each.
  const short type = access == Access::Write ? F_WRLCK : F_RDLCK;
  const off_t offset = access == Access::Write ? static_cast<off_t>(SecureRandom32()) : 0;
  for (const Range range : kRanges) {
    struct flock lock = LockOn(range, offset, 1, type);
    if ((ranges & range) != 0 && fcntl(descriptor, F_OFD_SETLK, &lock) != 0) {
      return errno == EAGAIN || errno == EACCES ? kSharingViolation : kSuccess;
    }
  }
  for (const Range range : kRanges) {
    if ((ranges & range) != 0 && IsPublished(descriptor, OppositeOf(range), OppositeOf(range))) {
      return kSharingViolation;
    }
  }
  return kSuccess;
}

void ForgetLocks() { listOfLocks.Reset(-1); }

bool IsInUse(FileAt file, const struct stat& entry) {
  // There an open is a message to the driver, whose inodes and device are those of the list.
  if (HasShortNames(file.folder) && IsListedWithout(entry)) {
    return false;
  }
  const int descriptor =
      openat(file.folder, file.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    return false;
  }
  const bool inUse = IsPublished(descriptor, kReads, kWrites);
  close(descriptor);
  return inUse;
}

}  // namespace platform::posix
