// A file system that only the test's process sees.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace platform::test {

// Is there until the end of its life, where the process has a view of its own of what is mounted:
// so nothing of this shows outside, and nothing is left of it, however the test ends.
class PrivateMount {
 public:
  PrivateMount(const std::string& folder, const char* type, const char* options) : folder_(folder) {
    std::filesystem::create_directory(folder);
    isMounted_ = IsPrivate() && mount(type, folder.c_str(), type, 0, options) == 0;
  }
  PrivateMount(const PrivateMount&) = delete;
  PrivateMount& operator=(const PrivateMount&) = delete;
  ~PrivateMount() {
    if (isMounted_) {
      umount2(folder_.c_str(), MNT_DETACH);
    }
  }
  bool IsMounted() const { return isMounted_; }

  // Gives the process its own view. False when it may not have one. The machine must not be open
  // yet: a folder that is held stays in the view in which it was opened.
  static bool IsPrivate() {
    static const bool isPrivate = IsAllowed() && Separate();
    return isPrivate;
  }

 private:
  static bool Separate() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  }

  // Tried by a child: where the root folder is no mount point, as in a chroot, half of it succeeds,
  // and the process would no longer see its own program where it is.
  static bool IsAllowed() {
    const pid_t child = fork();
    if (child == 0) {
      _exit(Separate() ? 0 : 1);
    }
    int status = 1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
  }

  std::string folder_;
  bool isMounted_ = false;
};

}  // namespace platform::test
