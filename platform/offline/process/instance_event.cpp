#include "platform/instance_event.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

#include "platform/linux/descriptor.h"
#include "platform/linux/error_map.h"
#include "platform/offline/volume/volume.h"

namespace platform {
namespace {

// Nothing locks this device for a purpose of its own, as some programs do with /dev/null.
constexpr const char* kDevice = "/dev/full";
constexpr unsigned kMajor = 1;
constexpr unsigned kMinor = 7;

// FNV-1a.
constexpr std::uint64_t kHashStart = 0xCBF29CE484222325;
std::uint64_t Hash(std::uint64_t hash, std::uint64_t value) {
  constexpr std::uint64_t kPrime = 0x100000001B3;
  for (int shift = 0; shift < 64; shift += 8) {
    hash = (hash ^ ((value >> shift) & 0xFF)) * kPrime;
  }
  return hash;
}

// The byte that stands for the event of this name on this machine.
Code OffsetOf(cvn::StringView name, off_t* offset) {
  const posix::Machine& machine = posix::Machine::Get();
  if (machine.State() != kSuccess) {
    return machine.State();
  }
  struct stat root {};
  if (fstat(machine.Folder()->Get(), &root) != 0) {
    return posix::CodeOf(errno);
  }
  std::uint64_t hash = Hash(Hash(kHashStart, root.st_dev), root.st_ino);
  for (const char16_t unit : name) {
    hash = Hash(hash, unit);
  }
  *offset = static_cast<off_t>(hash >> 2);
  return kSuccess;
}

Code OpenDevice(int* descriptor) {
  *descriptor = open(kDevice, O_RDWR | O_NOFOLLOW | O_CLOEXEC);
  struct stat device {};
  if (*descriptor < 0 || fstat(*descriptor, &device) != 0) {
    return posix::CodeOf(errno);
  }
  const bool isReal =
      S_ISCHR(device.st_mode) && device.st_uid == 0 && device.st_rdev == makedev(kMajor, kMinor);
  return isReal ? kSuccess : kAccessDenied;
}

int Lock(int descriptor, off_t offset, short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = offset;
  lock.l_len = 1;
  return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

bool IsConflict(int error) { return error == EAGAIN || error == EACCES; }

// The process that gets the exclusive lock is first, and turns it into a shared one; the kernel
// does so atomically. Processes that come while the byte is shared can only share it, too.
Code HoldByte(int descriptor, off_t offset) {
  // The first process has the exclusive lock for a moment only. Another account may keep it for
  // ever: then the event exists, and this process doesn't hold it.
  constexpr int kPatience = 1000;
  int error = Lock(descriptor, offset, F_WRLCK);
  if (error == 0) {
    return posix::CodeOf(Lock(descriptor, offset, F_RDLCK));
  }
  for (int i = 0; i < kPatience && IsConflict(error); ++i) {
    error = Lock(descriptor, offset, F_RDLCK);
    if (error != 0) {
      sched_yield();
    }
  }
  return error == 0 || IsConflict(error) ? kAlreadyExists : posix::CodeOf(error);
}

}  // namespace

void InstanceEvent::Close() {
  if (IsOpen()) {
    close(static_cast<int>(std::exchange(handle_, kNone)));
  }
}

Code CreateInstanceEvent(cvn::StringView name, InstanceEvent* event,
                         cvn::List<EventSecurityFailure>* /*failures*/) {
  *event = InstanceEvent();
  off_t offset = 0;
  int descriptor = -1;
  Code code = OffsetOf(name, &offset);
  if (code == kSuccess) {
    code = OpenDevice(&descriptor);
  }
  posix::Descriptor device(descriptor);
  if (code == kSuccess) {
    code = HoldByte(device.Get(), offset);
  }
  if (code == kSuccess || code == kAlreadyExists) {
    *event = InstanceEvent(device.Release());
  }
  return posix::Fail(code);
}

bool IsInstanceEventHeld(cvn::StringView name) {
  off_t offset = 0;
  int descriptor = -1;
  if (OffsetOf(name, &offset) != kSuccess || OpenDevice(&descriptor) != kSuccess) {
    return false;
  }
  const posix::Descriptor device(descriptor);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_start = offset;
  lock.l_len = 1;
  return fcntl(device.Get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace platform
