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

std::string FreshName() {
  // From a random start, so that what an ended process left is seldom in the way.
  static std::atomic<std::uint64_t> counter = std::uint64_t{SecureRandom32()} << 32;
  std::array<char, 32> name;
  std::snprintf(name.data(), name.size(), "tessel-%016" PRIx64 ".tmp", counter++);
  return name.data();
}

}  // namespace

AtomicFile::~AtomicFile() {
  if (isNamed_) {
    unlinkat(folder_, name_.c_str(), 0);
  }
}

int AtomicFile::Create(bool isTargetFree, mode_t permissions) {
  if (isTargetFree) {
    file_.Reset(openat(folder_, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, permissions));
  }
  return file_.Get() < 0 ? CreateWithFreshName(permissions) : 0;
}

int AtomicFile::CreateAs(const std::string& name, mode_t permissions) {
  unlinkat(folder_, name.c_str(), 0);
  name_ = name;
  return CreateNew(permissions);
}

int AtomicFile::CreateWithFreshName(mode_t permissions) {
  int error = EEXIST;
  while (error == EEXIST) {
    name_ = FreshName();
    error = CreateNew(permissions);
  }
  return error;
}

int AtomicFile::CreateNew(mode_t permissions) {
  file_.Reset(openat(folder_, name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
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
  const std::string fresh = FreshName();
  const int error = Link(fresh.c_str());
  if (error != 0) {
    return error;
  }
  name_ = fresh;
  isNamed_ = true;
  return Rename(name, true);
}

}  // namespace platform::posix
