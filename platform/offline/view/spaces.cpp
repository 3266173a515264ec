#include "platform/offline/view/spaces.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "platform/linux/same_file.h"

namespace platform::posix {
namespace {

constexpr int kFindFolder = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Those of the random numbers, of nothing, and of the lock of runs. No script can do harm by them.
constexpr const char* kDevices[] = {"/dev/null", "/dev/full", "/dev/random", "/dev/urandom"};
// For the temporary files of a task.
constexpr const char* kTemporarySize = "size=256m,mode=0700";

std::string PathOf(int descriptor) { return "/proc/self/fd/" + std::to_string(descriptor); }

int WriteFile(const char* path, const std::string& text) {
  const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
  const auto length = static_cast<ssize_t>(text.size());
  return file.Get() >= 0 && write(file.Get(), text.data(), text.size()) == length ? 0 : errno;
}

// This user and group keep their numbers, and there are no others.
int MapOwnUser(uid_t user, gid_t group) {
  const auto line = [](auto id) { return std::to_string(id) + ' ' + std::to_string(id) + " 1"; };
  int error = WriteFile("/proc/self/setgroups", "deny");
  error = error == 0 ? WriteFile("/proc/self/uid_map", line(user)) : error;
  return error == 0 ? WriteFile("/proc/self/gid_map", line(group)) : error;
}

int Mount(const char* source, const std::string& target, const char* type, unsigned long flags,
          const char* options) {
  return mount(source, target.c_str(), type, flags, options) == 0 ? 0 : errno;
}

int ChangeAttributes(const char* path, unsigned flags, std::uint64_t set, std::uint64_t clear) {
  mount_attr change{};
  change.attr_set = set;
  change.attr_clr = clear;
  return mount_setattr(AT_FDCWD, path, flags, &change, sizeof(change)) == 0 ? 0 : errno;
}

std::string TemporaryFolder(const ViewFolders& folders) {
  return folders.work + '/' + ViewFolders::kTemporary;
}

}  // namespace

int ViewSpaces::Enter(bool isSealed) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  const int flags = CLONE_NEWNS | (isSealed ? CLONE_NEWNET | CLONE_NEWIPC : 0);
  int error = user == 0 && unshare(flags) == 0 ? 0 : EPERM;
  if (error != 0) {
    hasUsers_ = unshare(flags | CLONE_NEWUSER) == 0;
    error = hasUsers_ ? MapOwnUser(user, group) : errno;
  }
  if (error != 0) {
    return error;
  }
  // What is mounted and taken back here must never be so outside.
  error = Mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  flags_ = error == 0 ? flags | (hasUsers_ ? CLONE_NEWUSER : 0) : 0;
  return error;
}

// A folder of the host as these namespaces have it.
int ViewSpaces::Reopen(const std::string& path, int known, Descriptor* folder) const {
  folder->Reset(open(path.c_str(), kFindFolder));
  struct stat before {};
  struct stat now {};
  if (folder->Get() < 0 || fstat(folder->Get(), &now) != 0 || fstat(known, &before) != 0) {
    return errno;
  }
  return IsSameFile(before, now) ? 0 : ESTALE;
}

int ViewSpaces::ReopenBoth(Descriptor* machine, Descriptor* work) const {
  const int error = Reopen(folders_.machine, folders_.machineFolder.Get(), machine);
  return error == 0 ? Reopen(folders_.work, folders_.workFolder.Get(), work) : error;
}

int ViewSpaces::MountOverlay() {
  Descriptor machine;
  Descriptor work;
  if (const int error = ReopenBoth(&machine, &work); error != 0) {
    return error;
  }
  const Descriptor upper(openat(work.Get(), ViewFolders::kUpper, kFindFolder));
  const Descriptor scratch(openat(work.Get(), ViewFolders::kScratch, kFindFolder));
  // By descriptors, so that no character of a path means anything to the kernel. What the names of
  // extended attributes on the volume say of other places is followed by none of the two forms.
  const std::string options = "lowerdir=" + PathOf(machine.Get()) +
                              ",upperdir=" + PathOf(upper.Get()) +
                              ",workdir=" + PathOf(scratch.Get()) + ",index=off";
  const std::string form =
      hasUsers_ ? ",userxattr" : ",redirect_dir=nofollow,metacopy=off,xino=off";
  const std::string target = PathOf(machine.Get());
  // Nobody needs on the disk what is dropped or committed later.
  const int error = Mount("overlay", target, "overlay", 0, (options + form + ",volatile").c_str());
  return error == EINVAL ? Mount("overlay", target, "overlay", 0, (options + form).c_str()) : error;
}

int ViewSpaces::MountCopy() {
  Descriptor machine;
  Descriptor work;
  if (const int error = ReopenBoth(&machine, &work); error != 0) {
    return error;
  }
  const Descriptor copy(openat(work.Get(), ViewFolders::kCopy, kFindFolder));
  return Mount(PathOf(copy.Get()).c_str(), PathOf(machine.Get()), nullptr, MS_BIND, nullptr);
}

void ViewSpaces::Unmount() const {
  if (flags_ != 0) {
    umount2(folders_.machine.c_str(), MNT_DETACH);
    umount2(TemporaryFolder(folders_).c_str(), MNT_DETACH);
  }
}

int ViewSpaces::Seal() {
  const std::string temporary = TemporaryFolder(folders_);
  int error = Mount("tmpfs", temporary, "tmpfs", MS_NODEV | MS_NOSUID, kTemporarySize);
  for (const char* device : kDevices) {
    // A host that lacks one has no need of it here.
    error = error == 0 && access(device, F_OK) == 0
                ? Mount(device, device, nullptr, MS_BIND, nullptr)
                : error;
  }
  if (error == 0) {
    error = ChangeAttributes("/", AT_RECURSIVE,
                             MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV | MOUNT_ATTR_NOSUID, 0);
  }
  for (const std::string& path : {folders_.machine, temporary}) {
    error = error == 0 ? ChangeAttributes(path.c_str(), 0, 0, MOUNT_ATTR_RDONLY) : error;
  }
  for (const char* device : kDevices) {
    error = error == 0 && access(device, F_OK) == 0
                ? ChangeAttributes(device, 0, 0, MOUNT_ATTR_NODEV)
                : error;
  }
  return error;
}

}  // namespace platform::posix
