#include "platform/linux/atomic_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

#include "platform/linux/file_names.h"
#include "platform/random.h"

namespace platform::posix {
namespace {

std::string FreshName(const std::string& folder) {
  // From a random start, so that what an ended process left is seldom in the way.
  static std::atomic<std::uint64_t> counter = std::uint64_t{SecureRandom32()} << 32;
  std::array<char, 32> name;
  std::snprintf(name.data(), name.size(), "tessel-%016" PRIx64 ".tmp", counter++);
  return folder + name.data();
}

}  // namespace

AtomicFile::~AtomicFile() {
  if (isNamed_) {
    unlink(path_.c_str());
  }
}

int AtomicFile::Create(const std::string& folder, bool isTargetFree, mode_t permissions) {
  if (isTargetFree) {
    const char* place = folder.empty() ? "." : folder.c_str();
    file_.Reset(open(place, O_WRONLY | O_TMPFILE | O_CLOEXEC, permissions));
  }
  if (file_.Get() < 0) {
    return CreateWithFreshName(folder, permissions);
  }
  path_ = "/proc/self/fd/" + std::to_string(file_.Get());
  return 0;
}

int AtomicFile::CreateAs(const std::string& path, mode_t permissions) {
  unlink(path.c_str());
  path_ = path;
  file_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
  isNamed_ = file_.Get() >= 0;
  return isNamed_ ? 0 : errno;
}

int AtomicFile::CreateWithFreshName(const std::string& folder, mode_t permissions) {
  int error = EEXIST;
  while (error == EEXIST) {
    path_ = FreshName(folder);
    file_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    error = file_.Get() < 0 ? errno : 0;
  }
  isNamed_ = error == 0;
  return error;
}

int AtomicFile::Name(const std::string& path, bool replace) {
  const int error = isNamed_ ? Rename(path, replace) : Link(path);
  // Where the name was free when the file was made, it may be taken by now.
  return error == EEXIST && !isNamed_ && replace ? LinkOver(path) : error;
}

int AtomicFile::Link(const std::string& path) const {
  if (linkat(file_.Get(), "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0) {
    return 0;
  }
  if (errno != ENOENT) {
    return errno;
  }
  // Either the folder is gone, or the host lets this process name files only by their paths.
  return linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0 ? 0
                                                                                         : errno;
}

int AtomicFile::Rename(const std::string& path, bool replace) {
  int error = 0;
  if (!replace) {
    error = RenameToFree(path_, path);
  } else if (rename(path_.c_str(), path.c_str()) != 0) {
    error = errno;
  }
  isNamed_ = error != 0;
  return error;
}

// A link never takes the place of a file, so the file gets a name of its own first.
int AtomicFile::LinkOver(const std::string& path) {
  const std::string name = FreshName(FolderOf(path));
  const int error = Link(name);
  if (error != 0) {
    return error;
  }
  path_ = name;
  isNamed_ = true;
  return Rename(path, true);
}

}  // namespace platform::posix
