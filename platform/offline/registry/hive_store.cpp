#include "platform/offline/registry/hive_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/error_map.h"
#include "platform/linux/file_lock.h"
#include "platform/linux/same_file.h"

namespace platform::posix {
namespace {

bool IsSame(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsUnchanged(const struct stat& left, const struct stat& right) {
  return IsSameFile(left, right) && left.st_size == right.st_size &&
         IsSame(left.st_mtim, right.st_mtim) && IsSame(left.st_ctim, right.st_ctim);
}

}  // namespace

Code HiveStore::Enter(bool alone) {
  const Lock wanted = alone ? Lock::Alone : Lock::Shared;
  if (lock_ == Lock::Alone || lock_ == wanted) {
    return kSuccess;
  }
  Code code = kSuccess;
  // A file may take the place of another while the lock on that is waited for.
  constexpr int kMostReplacements = 10;
  for (int i = 0; code == kSuccess && i < kMostReplacements; ++i) {
    const bool isFit = file_.Get() >= 0 && (!alone || isForWriting_ || !canWrite_);
    code = isFit ? kSuccess : Open(alone);
    code = code == kSuccess ? TakeLock(wanted) : code;
    struct stat named {};
    struct stat opened {};
    if (code != kSuccess) {
      break;
    }
    const auto [folder, name] = place_.At();
    if (fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        fstat(file_.Get(), &opened) != 0) {
      code = CodeOf(errno, kReadFault);
    } else if (IsSameFile(named, opened)) {
      code = Look(opened);
      break;
    }
    Leave();
    file_.Reset(-1);
    isLoaded_ = false;
  }
  if (code != kSuccess) {
    Leave();
  }
  return code == kSuccess && !IsEntered() ? Code(kBusy) : code;
}

// Readers open the file for reading alone: below an overlay, what is opened for writing is copied.
Code HiveStore::Open(bool forWriting) {
  // What is mapped may keep the file, and its lock, beyond its descriptor.
  Leave();
  const auto [folder, name] = place_.At();
  // O_NONBLOCK: a pipe in the place of the file would let the run wait for ever.
  file_.Reset(forWriting ? place_.Open(O_RDWR | O_NONBLOCK) : -1);
  isForWriting_ = file_.Get() >= 0;
  canWrite_ = forWriting ? isForWriting_ : faccessat(folder, name, W_OK, AT_EACCESS) == 0;
  if (!isForWriting_) {
    isLoaded_ = isLoaded_ && !forWriting;  // what may be done with it has to be found anew
    file_.Reset(place_.Open(O_RDONLY | O_NONBLOCK));
  }
  struct stat status {};
  if (file_.Get() < 0 || fstat(file_.Get(), &status) != 0) {
    const Code code = CodeOf(errno, kReadFault);
    file_.Reset(-1);
    return code;
  }
  if (!S_ISREG(status.st_mode)) {
    file_.Reset(-1);
    return kBadDatabase;
  }
  return kSuccess;
}

Code HiveStore::TakeLock(Lock wanted) {
  lock_ = Lock::None;
  bool isHeld = false;  // a file system that has no locks lets everything pass
  const Code code = WaitForLock(file_.Get(), wanted == Lock::Alone, &isHeld);
  lock_ = code == kSuccess ? wanted : Lock::None;
  return code;
}

void HiveStore::Leave() {
  if (pages_.IsChanged() || pages_.IsTorn() || isStale_) {
    isLoaded_ = false;
    isStale_ = false;
  }
  if (file_.Get() >= 0) {
    flock(file_.Get(), LOCK_UN);
  }
  lock_ = Lock::None;
}

Code HiveStore::Look(const struct stat& status) {
  BaseBlock base;
  std::size_t got = 0;
  const Code code = ReadAt(file_.Get(), 0, base.Bytes(), &got);
  if (code != kSuccess) {
    return code;
  }
  const bool isCurrent = isLoaded_ && IsUnchanged(status, status_) && base == base_;
  if (isCurrent && base.IsDirty() && logEnd_ != 0) {
    const Code more = ReplayMore();  // what others have logged since
    if (more != kSuccess) {
      isLoaded_ = false;
      return more;
    }
  }
  if (isCurrent) {
    return kSuccess;
  }
  status_ = status;
  base_ = base;
  ++version_;
  const Code loaded = Load();
  isLoaded_ = loaded == kSuccess;
  return loaded;
}

Code HiveStore::Load() {
  logEnd_ = 0;
  isUnsettled_ = false;
  isOldLog_ = false;
  isLogOpen_ = false;
  log_ = LogFile();
  Code code = kSuccess;
  if (!base_.IsSound() || base_.IsDirty()) {
    code = Recover();
  } else if (HivePages::kPage + std::uint64_t{base_.DataSize()} >
             static_cast<std::uint64_t>(status_.st_size)) {
    code = kBadDatabase;
  } else {
    number_ = base_.First();
    code = MapPrimary(base_);
  }
  if (code == kSuccess) {
    FindWritability();
  }
  return code;
}

Code HiveStore::MapPrimary(const BaseBlock& base) {
  if (base.DataSize() % HivePages::kPage != 0) {
    return kBadDatabase;
  }
  // A descriptor from before an overlay copied the file would map the one below.
  const Descriptor fresh(place_.Open(O_RDONLY | O_NONBLOCK));
  struct stat status {};
  const bool isSame =
      fresh.Get() >= 0 && fstat(fresh.Get(), &status) == 0 && IsSameFile(status, status_);
  return pages_.Map(isSame ? fresh.Get() : file_.Get(), static_cast<std::size_t>(status_.st_size),
                    HivePages::kPage + base.DataSize());
}

void HiveStore::FindWritability() {
  // Even root is bound by what the file's mode says, as SYSTEM is by READONLY on Windows.
  if (!canWrite_ || (status_.st_mode & 0222) == 0) {
    writability_ = kAccessDenied;
  } else {
    const bool isIncomplete = base_.IsDirty() && logEnd_ == 0 && !isUnsettled_;
    writability_ = isIncomplete ? kBadDatabase : kSuccess;
  }
}

BaseBlock HiveStore::InMemory() const {
  BaseBlock base;
  std::ranges::copy(pages_.Bytes().first(BaseBlock::kSize), base.Bytes().begin());
  base.SetType(BaseBlock::Kind::Primary);
  base.SetDataSize(static_cast<std::uint32_t>(pages_.Bytes().size() - HivePages::kPage));
  return base;
}

}  // namespace platform::posix
