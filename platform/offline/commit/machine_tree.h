// The entries of the machine by their exact paths, with no link on the way.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "platform/linux/file_names.h"
#include "support/string.h"

namespace platform::posix {

// Whether a path of the host, relative to the machine's folder, stays below it as text: names
// between single slashes, none of them "." or "..". An empty one is that folder.
bool StaysBelow(std::string_view path);

// Such a path for C:\..., spelled as the volume has it. False for any other.
bool ToPathBelow(cvn::StringView path, std::string* below);

// The folder of an entry; of what lies in the machine's folder, and of that itself, empty.
std::string_view FolderOf(std::string_view path);

class MachineTree {
 public:
  // `root` is a descriptor of the machine's folder, which outlives this.
  explicit MachineTree(int root) : root_(root) {}

  int Root() const { return root_; }

  // The place of a path, which stays good until the next call. The folder of the last one is kept
  // open, so that neighbours cost little. 2 or 3 when there is no such folder, 17 when it lies in
  // another file system, 1921 when a link is on the way.
  Code Find(std::string_view path, FileAt* place);

  // After folders have been moved or removed.
  void Forget() { known_ = Descriptor(); }

 private:
  const int root_;
  Descriptor known_;    // the folder of the last path; none for the machine's folder
  std::string folder_;  // its path
  std::string name_;
};

}  // namespace platform::posix
