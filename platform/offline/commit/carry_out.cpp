#include "platform/offline/commit/carry_out.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>

#include "platform/linux/error_map.h"
#include "platform/offline/commit/hives.h"
#include "platform/offline/registry/registry.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kNewFolder = S_IRWXU;

// There is nothing under a name, or no way to it any more.
bool IsGone(Code code) {
  return code == kFileNotFound || code == kPathNotFound || code == kCantResolveFilename;
}

bool Status(FileAt file, struct stat* entry) {
  return fstatat(file.folder, file.name, entry, AT_SYMLINK_NOFOLLOW) == 0;
}

// A driver for NTFS makes a new descriptor of permissions, also of those that a file has.
Code SetMode(FileAt file, const struct stat& entry, mode_t mode) {
  const bool isSet = (entry.st_mode & kPermissions) == mode ||
                     fchmodat(file.folder, file.name, mode, AT_SYMLINK_NOFOLLOW) == 0;
  return isSet ? kSuccess : CodeOf(errno);
}

// A folder that goes to another one changes itself (in its ".."), so its owner must be able to
// write to it. What it is like in the end comes later.
Code Rename(FileAt from, FileAt to) {
  struct stat entry {};
  if (renameat(from.folder, from.name, to.folder, to.name) == 0) {
    return kSuccess;
  }
  const int error = errno;
  const bool mayWrite = error != EACCES || !Status(from, &entry) || !S_ISDIR(entry.st_mode) ||
                        (entry.st_mode & S_IWUSR) != 0;
  if (mayWrite || SetMode(from, entry, (entry.st_mode & kPermissions) | S_IWUSR) != kSuccess) {
    return CodeOf(error);
  }
  return renameat(from.folder, from.name, to.folder, to.name) == 0 ? kSuccess : CodeOf(errno);
}

class Steps {
 public:
  Steps(const CommitPlan& plan, const Staging& staging, MachineTree* tree, Meter* meter)
      : plan_(plan), staging_(staging), tree_(*tree), meter_(*meter) {}

  Code TakeAll();

 private:
  Code OpenFolder(const CommitPlan::Opened& one) { return SetFolderMode(one, S_IWUSR); }
  Code CloseFolder(const CommitPlan::Opened& one) { return SetFolderMode(one, 0); }
  Code SetFolderMode(const CommitPlan::Opened& one, mode_t more);
  Code Depart(const CommitPlan::Departure& one);
  Code Arrive(const CommitPlan::Arrival& one);
  Code MakeNewFolder(FileAt place);
  Code Rewrite(const CommitPlan::Rewrite& one);
  Code Settle(const CommitPlan::Settled& one);
  Code FlushAll();
  Code Flush(const std::string& path);

  template <typename List, typename Step>
  Code ForEach(const List& list, Step step) {
    for (const auto& one : list) {
      if (const Code code = (this->*step)(one); code != kSuccess) {
        return code;
      }
      meter_.Add(0);
    }
    return kSuccess;
  }

  const CommitPlan& plan_;
  const Staging& staging_;
  MachineTree& tree_;
  Meter& meter_;
  std::set<std::string, std::less<>> changed_;  // what has to come to the disk
};

Code Steps::TakeAll() {
  Code code = ForEach(plan_.opened, &Steps::OpenFolder);
  code = code == kSuccess ? ForEach(plan_.departures, &Steps::Depart) : code;
  code = code == kSuccess ? ForEach(plan_.arrivals, &Steps::Arrive) : code;
  code = code == kSuccess ? ForEach(plan_.rewrites, &Steps::Rewrite) : code;
  if (code == kSuccess) {
    code = ForEachHive(plan_.keys, [](std::span<const machine::KeyChange> hive) {
      HostPath place;
      const Code found = Resolve(hive.front().hive, &place);
      return found == kSuccess ? ApplyKeyChanges(place, hive, machine::Side::After) : found;
    });
  }
  code = code == kSuccess ? ForEach(plan_.opened, &Steps::CloseFolder) : code;
  // The time of a folder is the last that changes in it.
  for (auto one = plan_.settled.rbegin(); code == kSuccess && one != plan_.settled.rend(); ++one) {
    code = Settle(*one);
    meter_.Add(0);
  }
  return code == kSuccess ? FlushAll() : code;
}

// A folder that has left by now, maybe for something else, is left alone.
Code Steps::SetFolderMode(const CommitPlan::Opened& one, mode_t more) {
  FileAt place{};
  struct stat entry {};
  if (const Code code = tree_.Find(one.path, &place); code != kSuccess) {
    return IsGone(code) ? kSuccess : code;
  }
  const bool isThere = Status(place, &entry) && S_ISDIR(entry.st_mode);
  return isThere ? SetMode(place, entry, (one.mode & kPermissions) | more) : kSuccess;
}

Code Steps::Depart(const CommitPlan::Departure& one) {
  changed_.emplace(FolderOf(one.path));
  FileAt place{};
  struct stat entry {};
  const Code code = tree_.Find(one.path, &place);
  if (IsGone(code)) {
    return kSuccess;
  }
  if (code != kSuccess) {
    return code;
  }
  if (!Status(place, &entry)) {
    return errno == ENOENT ? kSuccess : CodeOf(errno);
  }
  if (entry.st_ino != one.inode) {
    return kSuccess;
  }
  const SlotName slot(one.slot);
  const Code moved = Rename(place, slot.In(staging_));
  if (S_ISDIR(entry.st_mode)) {
    tree_.Forget();
  }
  return moved;
}

Code Steps::Arrive(const CommitPlan::Arrival& one) {
  changed_.emplace(FolderOf(one.path));
  FileAt place{};
  const Code code = tree_.Find(one.path, &place);
  if (code != kSuccess) {
    return code;
  }
  if (one.slot == 0) {
    return MakeNewFolder(place);
  }
  const SlotName slot(one.slot);
  struct stat entry {};
  if (!Status(slot.In(staging_), &entry)) {
    return errno == ENOENT ? kSuccess : CodeOf(errno);
  }
  if (one.inherits) {
    const FileAt staged = slot.In(staging_);
    const Descriptor file(openat(staged.folder, staged.name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    const Code inherited =
        file.Get() < 0 ? CodeOf(errno) : InheritSecurity(place.folder, file.Get());
    if (inherited != kSuccess) {
      return inherited;
    }
  }
  const Code moved = Rename(slot.In(staging_), place);
  if (S_ISDIR(entry.st_mode)) {
    tree_.Forget();
  }
  return moved;
}

Code Steps::MakeNewFolder(FileAt place) {
  const Code code = MakeFolder(place, kNewFolder);
  struct stat entry {};
  const bool isThere = code == kAlreadyExists && Status(place, &entry) && S_ISDIR(entry.st_mode);
  // In the end it is as it is to be, which an earlier try may have seen to; but names come first.
  return isThere ? SetMode(place, entry, (entry.st_mode & kPermissions) | kNewFolder) : code;
}

Code Steps::Rewrite(const CommitPlan::Rewrite& one) {
  changed_.insert(one.path);
  FileAt place{};
  struct stat entry {};
  const Code code = tree_.Find(one.path, &place);
  if (code != kSuccess) {
    return code;
  }
  const SlotName slot(one.slot);
  const FileAt staged = slot.In(staging_);
  const Descriptor from(openat(staged.folder, staged.name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  Descriptor to(openat(place.folder, place.name, kFlags));
  if (to.Get() < 0 && errno == EACCES && Status(place, &entry) &&
      SetMode(place, entry, (entry.st_mode & kPermissions) | S_IWUSR) == kSuccess) {
    to = Descriptor(openat(place.folder, place.name, kFlags));
  }
  if (from.Get() < 0 || to.Get() < 0 || fstat(from.Get(), &entry) != 0 ||
      ftruncate(to.Get(), 0) != 0) {
    return CodeOf(errno, kWriteFault);
  }
  return CopyContent(from.Get(), entry, to.Get());
}

Code Steps::Settle(const CommitPlan::Settled& one) {
  changed_.insert(one.path);
  FileAt place{};
  const Code code = tree_.Find(one.path, &place);
  return code == kSuccess ? WriteEntryState(place, one.state) : code;
}

Code Steps::FlushAll() {
  if (staging_.CanFlushAtOnce(changed_.size())) {
    return staging_.FlushAtOnce();
  }
  for (const std::string& path : changed_) {
    if (const Code code = Flush(path); code != kSuccess) {
      return code;
    }
  }
  return kSuccess;
}

Code Steps::Flush(const std::string& path) {
  FileAt place{};
  const Code code = tree_.Find(path, &place);
  if (code != kSuccess) {
    return IsGone(code) ? kSuccess : code;
  }
  const Descriptor object(
      openat(place.folder, place.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (object.Get() < 0) {
    // A folder that has left, or what may not be read.
    return errno == ENOENT || errno == EACCES || errno == ELOOP ? kSuccess : CodeOf(errno);
  }
  return fsync(object.Get()) == 0 || errno == EINVAL ? kSuccess : CodeOf(errno, kWriteFault);
}

}  // namespace

Code CarryOut(const CommitPlan& plan, const Staging& staging, MachineTree* tree, Meter* meter) {
  return Steps(plan, staging, tree, meter).TakeAll();
}

}  // namespace platform::posix
