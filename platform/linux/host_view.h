// What a process that runs in a view of its own (machine_view.h) has to know of that. Elsewhere
// none of it holds.
#pragma once

namespace platform::posix {

struct HostView {
  // Folders that were there before can't be renamed, only copied and removed.
  bool keepsFolders = false;
  // The host shows every owner but this user as the overflow user: also root.
  bool hidesOwners = false;
};

inline HostView& CurrentView() {
  static HostView view;
  return view;
}

}  // namespace platform::posix
