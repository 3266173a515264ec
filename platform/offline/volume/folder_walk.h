// The way from a drive's root to a place, folder by folder.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/offline/volume/directory_index.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// The index of this process.
DirectoryIndex& NameIndex();

// Walks with each folder held open, so that what others rename or replace meanwhile changes where a
// walk ends but never leads it out of the drive. A link on C: is taken apart here and not by the
// host; ".." goes the way from the root anew, for a folder's own ".." is where it lies now.
class FolderWalk {
 public:
  // `root` is the drive's root, which the host spells `rootSpelling`.
  FolderWalk(std::shared_ptr<const Descriptor> root, std::string_view rootSpelling, bool onMachine);

  // Walks the names of `path` and tells in `host` where that ends; its other members stay. A link
  // that ends the path is followed only if `followsLast`. The codes are those of Resolve.
  Code Go(std::string_view path, bool followsLast, HostPath* host);

 private:
  void Restart();
  void Push(std::string_view path);
  void GoUp();
  Code Enter(std::string name, bool followsLinks);
  Code OpenEntry(std::string* name, int flags, Descriptor* object) const;
  Code TakeLink(int link);
  void Tell(HostPath* host) const;

  const std::shared_ptr<const Descriptor> root_;
  const std::string_view rootSpelling_;
  const bool onMachine_;
  std::vector<std::string> pending_;  // the names to come, the next one last
  std::size_t steps_ = 0;
  std::size_t links_ = 0;

  // Where the walk is. Either in a folder, at `below_`, or at `leaf_` in it.
  std::shared_ptr<const Descriptor> folder_;
  std::shared_ptr<const Descriptor> parent_;  // of the folder, unless that is the root
  std::string below_;                         // with a slash before each name
  std::string leaf_;                          // what is no folder, or not there
  struct stat entry_ = {};
};

}  // namespace platform::posix
