#include "platform/linux/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <set>
#include <string_view>
#include <tuple>

#include "platform/formats/draft_name.h"
#include "platform/linux/directory_stream.h"
#include "platform/linux/file_names.h"
#include "platform/linux/volume_traits.h"
#include "platform/random.h"

namespace platform::posix {
namespace {

constexpr const char* kEnding = "tmp";

// A draft is locked while it is made, because the number of a process means nothing to those in
// other containers.
void RemoveIfLeft(int folder, const char* name) {
  const auto maker = static_cast<pid_t>(MakerOfDraft(std::string_view(name)));
  if (maker == 0 || kill(maker, 0) == 0 || errno != ESRCH) {
    return;
  }
  const Descriptor draft(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat entry {};
  if (draft.Get() >= 0 && fstat(draft.Get(), &entry) == 0 && S_ISREG(entry.st_mode) &&
      entry.st_nlink == 1 && entry.st_uid == geteuid() &&
      (flock(draft.Get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)) {
    unlinkat(folder, name, 0);
  }
}

}  // namespace

std::string FreshName(const char* ending) {
  // From a random start, so that what an ended process left is seldom in the way.
  static std::atomic<std::uint64_t> counter = std::uint64_t{SecureRandom32()} << 32;
  std::array<char, 48> name;
  std::snprintf(name.data(), name.size(), "tessel-%d-%016" PRIx64 ".%s", getpid(), counter++,
                ending);
  return name.data();
}

void RemoveAbandonedDrafts(int folder) {
  constexpr std::size_t kMostFolders = 10'000;
  static std::mutex mutex;
  // With the time of its making, since a number may be that of another folder later.
  using Identity = std::tuple<unsigned, unsigned, std::uint64_t, std::int64_t, unsigned>;
  static std::set<Identity> known;
  const std::lock_guard lock(mutex);
  struct statx status {};
  if (known.size() > kMostFolders ||
      statx(folder, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO | STATX_BTIME, &status) !=
          0 ||
      !known
           .emplace(status.stx_dev_major, status.stx_dev_minor, status.stx_ino,
                    status.stx_btime.tv_sec, status.stx_btime.tv_nsec)
           .second) {
    return;
  }
  // What isn't found stays.
  std::ignore = ForEachEntry({folder, "."}, 0, [folder](const dirent& entry) {
    RemoveIfLeft(folder, entry.d_name);
    return true;
  });
}

AtomicFile::~AtomicFile() {
  if (isNamed_) {
    unlinkat(folder_, name_.c_str(), 0);
  }
}

int AtomicFile::Create(bool isTargetFree, mode_t permissions) {
  std::atomic<bool>& makesUnnamed = VolumeTraits::Of(folder_).makesUnnamed;
  if (isTargetFree && makesUnnamed) {
    file_.Reset(openat(folder_, ".", O_RDWR | O_TMPFILE | O_CLOEXEC, permissions));
    // EISDIR: of a kernel that takes it for the opening of the folder.
    makesUnnamed = file_.Get() >= 0 || (errno != EOPNOTSUPP && errno != EISDIR);
  }
  return file_.Get() < 0 ? CreateWithFreshName(permissions) : 0;
}

int AtomicFile::CreateWithFreshName(mode_t permissions) {
  RemoveAbandonedDrafts(folder_);
  int error = EEXIST;
  constexpr int kAttempts = 8;
  for (int attempt = 0; error == EEXIST && attempt < kAttempts; ++attempt) {
    name_ = FreshName(kEnding);
    error = CreateNew(permissions);
  }
  if (error == 0) {
    flock(file_.Get(), LOCK_EX | LOCK_NB);  // without locks, the maker's life counts alone
  }
  return error == EEXIST ? ENOSPC : error;  // what a full NTFS volume says of every new name
}

int AtomicFile::CreateNew(mode_t permissions) {
  file_.Reset(openat(folder_, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
  isNamed_ = file_.Get() >= 0;
  return isNamed_ ? 0 : errno;
}

int AtomicFile::Name(const char* name, bool replace) {
  const int error = isNamed_ ? Rename(name, replace) : Link(name);
  // Where the name was free when the file was made, it may be taken by now.
  return error == EEXIST && !isNamed_ && replace ? LinkOver(name) : error;
}

int AtomicFile::Link(const char* name) const {
  if (linkat(file_.Get(), "", folder_, name, AT_EMPTY_PATH) == 0) {
    return 0;
  }
  if (errno != ENOENT) {
    return errno;
  }
  // Either the folder is gone, or the host lets this process name files only by their paths.
  const std::string path = "/proc/self/fd/" + std::to_string(file_.Get());
  return linkat(AT_FDCWD, path.c_str(), folder_, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

int AtomicFile::Rename(const char* name, bool replace) {
  int error = 0;
  if (!replace) {
    error = RenameToFree({folder_, name_.c_str()}, {folder_, name});
  } else if (renameat(folder_, name_.c_str(), folder_, name) != 0) {
    error = errno;
  }
  isNamed_ = error != 0;
  return error;
}

// A link never takes the place of a file, so the file gets a name of its own first.
int AtomicFile::LinkOver(const char* name) {
  const std::string fresh = FreshName(kEnding);
  const int error = Link(fresh.c_str());
  if (error != 0) {
    return error;
  }
  name_ = fresh;
  isNamed_ = true;
  return Rename(name, true);
}

}  // namespace platform::posix
