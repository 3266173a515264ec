// What a process that runs in a view of its own (machine_view.h) has to know of that. Elsewhere
// none of it holds.
#pragma once

#include <sys/types.h>

namespace platform::posix {

struct HostView {
  // Folders that were there before can't be renamed, only copied and removed.
  bool keepsFolders = false;
  // The host shows every owner but this user as the overflow user: also root.
  bool hidesOwners = false;
  // Nothing but the view may be changed.
  bool isSealed = false;
};

inline HostView& CurrentView() {
  static HostView view;
  return view;
}

// As openat, for a path of a script on the host. The links of /proc to the folders and files of
// processes would lead around a sealed view, to mounts outside it: there they are none (ELOOP).
int OpenOnHost(int folder, const char* path, int flags, mode_t permissions = 0);

}  // namespace platform::posix
