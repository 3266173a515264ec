#include "platform/linux/host_view.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace platform::posix {

int OpenOnHost(int folder, const char* path, int flags, mode_t permissions) {
  if (!CurrentView().isSealed) {
    return openat(folder, path, flags, permissions);
  }
  open_how how{};
  how.flags = static_cast<unsigned>(flags);
  how.mode = (flags & O_CREAT) != 0 ? permissions : 0;
  how.resolve = RESOLVE_NO_MAGICLINKS;
  return static_cast<int>(syscall(SYS_openat2, folder, path, &how, sizeof(how)));
}

}  // namespace platform::posix
