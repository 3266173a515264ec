// A volume with NTFS that only the test's process sees.
#pragma once

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/prctl.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/platform/private_mount.h"

namespace platform::test {

// Is there until the end of its life. The driver is a process of ours and dies with it.
class NtfsMount {
 public:
  // The image is made beside the folder, where it stays; one that is there is mounted again.
  explicit NtfsMount(const std::string& folder, const std::string& options = "rw")
      : folder_(folder) {
    const std::string image = folder + ".image";
    const bool isNew = std::filesystem::create_directory(folder);
    if (isNew) {
      std::ofstream(image).close();
      std::filesystem::resize_file(image, std::uintmax_t{16} << 20);
    }
    if (geteuid() != 0 || !PrivateMount::IsPrivate() ||
        (isNew && std::system(("mkntfs -F -q " + image + " >/dev/null 2>&1").c_str()) != 0)) {
      return;
    }
    driver_ = fork();
    if (driver_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      const std::string driver =
          "exec ntfs-3g -o no_detach," + options + " " + image + " " + folder + " 2>/dev/null";
      execl("/bin/sh", "sh", "-c", driver.c_str(), nullptr);
      _exit(127);
    }
    while (driver_ > 0 && !IsMounted() && waitpid(driver_, nullptr, WNOHANG) == 0) {
      usleep(1000);
    }
  }
  NtfsMount(const NtfsMount&) = delete;
  NtfsMount& operator=(const NtfsMount&) = delete;
  ~NtfsMount() {
    if (!IsMounted()) {
      return;
    }
    // The driver ends by itself where nothing of the volume is open.
    if (umount2(folder_.c_str(), 0) != 0) {
      umount2(folder_.c_str(), MNT_DETACH);
      kill(driver_, SIGKILL);
    }
    waitpid(driver_, nullptr, 0);
  }

  // False where there is no driver, or nothing can be mounted.
  bool IsMounted() const {
    struct statfs volume {};
    return statfs(folder_.c_str(), &volume) == 0 && volume.f_type == FUSE_SUPER_MAGIC;
  }

  // Gives a file in the folder a short name, as Windows does when it makes the file.
  bool SetShortName(const std::string& name, const std::string& shortName) const {
    return lsetxattr((folder_ + "/" + name).c_str(), "system.ntfs_dos_name", shortName.data(),
                     shortName.size(), 0) == 0;
  }

 private:
  std::string folder_;
  pid_t driver_ = -1;
};

}  // namespace platform::test
