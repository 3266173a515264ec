// The namespaces of a view, and what is mounted in them.
#pragma once

#include <string>

#include "platform/linux/descriptor.h"

namespace platform::posix {

// The folders of a view: paths of the host without links, each with the folder itself, opened in
// the host's own mount namespace.
struct ViewFolders {
  std::string machine;
  Descriptor machineFolder;
  std::string work;  // this account's alone; holds the folders below
  Descriptor workFolder;

  static constexpr const char* kUpper = "upper";  // what differs from the machine, in an overlay
  static constexpr const char* kCopy = "copy";    // all of the machine, without one
  static constexpr const char* kScratch = "scratch";      // the overlay's own
  static constexpr const char* kTemporary = "temporary";  // the task's temporary files
};

// The namespaces that the calling process makes for itself; it has one thread. Each step gives 0,
// or the value of errno. A step that fails leaves the ones before it.
class ViewSpaces {
 public:
  explicit ViewSpaces(const ViewFolders& folders) : folders_(folders) {}

  int Enter(bool isSealed);
  // Whether there is a namespace for users, as an account other than root needs one.
  bool HasUsers() const { return hasUsers_; }
  // The flags of all, as setns takes them; 0 before Enter.
  int Flags() const { return flags_; }

  // Puts the overlay, or the copy, in the place of the machine's folder.
  int MountOverlay();
  int MountCopy();
  // Makes all but that and the folder for temporary files read-only and without devices, but for
  // those that any program may need.
  int Seal();
  // Takes back what was mounted: a folder that something is mounted on can't be removed.
  void Unmount() const;

 private:
  int Reopen(const std::string& path, int known, Descriptor* folder) const;
  int ReopenBoth(Descriptor* machine, Descriptor* work) const;

  const ViewFolders& folders_;
  bool hasUsers_ = false;
  int flags_ = 0;
};

}  // namespace platform::posix
