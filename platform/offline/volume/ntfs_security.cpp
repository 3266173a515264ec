#include "platform/offline/volume/ntfs_security.h"

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/formats/security_descriptor.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/linux/same_file.h"
#include "platform/linux/volume_traits.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {
namespace {

using security::NewObject;
using Bytes = std::vector<std::byte>;

std::mutex& Mutex() {
  static std::mutex mutex;
  return mutex;
}

// What is open, also as a place only, for the calls that take no such descriptor.
std::string PathOf(int opened) { return "/proc/self/fd/" + std::to_string(opened); }

// The descriptor of an open file or folder; nothing when it can't be read. ntfs-3g fails with EIO
// where the buffer is too small, so it is the largest that there can be.
Bytes ReadDescriptor(int opened, const char* name) {
  Bytes bytes(XATTR_SIZE_MAX);
  const ssize_t size = getxattr(PathOf(opened).c_str(), name, bytes.data(), bytes.size());
  bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return bytes;
}

Code WriteDescriptor(int file, const char* name, const Bytes& descriptor) {
  if (descriptor.empty() || fsetxattr(file, name, descriptor.data(), descriptor.size(), 0) == 0) {
    return kSuccess;
  }
  const bool isDenied = errno == EPERM || errno == EACCES || errno == EOPNOTSUPP;
  return isDenied ? kSuccess : CodeOf(errno, kWriteFault);
}

// A folder on a volume with NTFS.
struct Parent {
  int folder;
  FileNumbers numbers;
  const char* attribute;
};

// What folders pass on to new files and folders.
class Inheritance {
 public:
  static Inheritance& OfProcess() {
    static Inheritance inheritance;
    return inheritance;
  }

  // `made` is the first object of its kind that asks.
  Bytes Get(const Parent& parent, int made, NewObject kind) {
    constexpr std::size_t kMostFolders = 1'000;
    const std::lock_guard lock(Mutex());
    if (folders_.size() >= kMostFolders) {
      folders_.clear();
    }
    Bytes& known = folders_[parent.numbers][static_cast<std::size_t>(kind)];
    if (known.empty()) {
      known = security::Inherit(ReadDescriptor(parent.folder, parent.attribute),
                                ReadDescriptor(made, parent.attribute), kind);
    }
    return known;
  }

  // Says nothing of a folder that has got the number of another.
  void Forget(FileNumbers numbers) {
    const std::lock_guard lock(Mutex());
    folders_.erase(numbers);
  }

 private:
  std::map<FileNumbers, std::array<Bytes, 2>> folders_;
};

Code Inherit(const Parent& parent, int made, NewObject kind) {
  return WriteDescriptor(made, parent.attribute, Inheritance::OfProcess().Get(parent, made, kind));
}

}  // namespace

Code InheritSecurity(int folder, int made) {
  const char* name = DescriptorAttribute(folder);
  if (name == nullptr) {
    return kSuccess;
  }
  const std::optional<FileNumbers> numbers = NumbersOf(folder);
  return numbers ? Inherit({folder, *numbers, name}, made, NewObject::File) : CodeOf(errno);
}

Code MakeFolder(FileAt place, mode_t permissions) {
  if (mkdirat(place.folder, place.name, permissions) != 0) {
    return errno == EEXIST ? kAlreadyExists : CodeOf(errno);
  }
  const char* name = DescriptorAttribute(place.folder);
  if (name == nullptr) {
    return kSuccess;
  }
  const Descriptor made(
      openat(place.folder, place.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const std::optional<FileNumbers> parent = NumbersOf(place.folder);
  const std::optional<FileNumbers> numbers = NumbersOf(made.Get());
  Code code = parent && numbers ? kSuccess : CodeOf(errno);
  if (code == kSuccess) {
    Inheritance::OfProcess().Forget(*numbers);
    code = Inherit({place.folder, *parent, name}, made.Get(), NewObject::Folder);
  }
  if (code == kSuccess) {
    code = ClearAttributes(made.Get());
  }
  if (code != kSuccess) {
    unlinkat(place.folder, place.name, AT_REMOVEDIR);  // the caller gets no folder
  }
  return code;
}

Code KeepForOwner(int file) {
  const char* name = DescriptorAttribute(file);
  return name == nullptr
             ? kSuccess
             : WriteDescriptor(file, name, security::ForOwnerAlone(ReadDescriptor(file, name)));
}

}  // namespace platform::posix
