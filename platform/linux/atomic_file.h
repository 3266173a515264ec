// A file that appears under its name complete or not at all.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/linux/descriptor.h"

namespace platform::posix {

// A file under construction, and gone at the end of its life unless it got its name. All operations
// give 0, or the value of errno.
class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  ~AtomicFile();

  // Makes the file in `folder`, which ends with its slash or is empty. For a name that is free it
  // has none before, where the host can make such files: then nothing is left of it if
  // the process is killed. Else it is called "tessel-....tmp" until then.
  int Create(const std::string& folder, bool isTargetFree, mode_t permissions);
  // Makes the file under a name of the caller's, which it takes from what an ended process left.
  int CreateAs(const std::string& path, mode_t permissions);

  int File() const { return file_.Get(); }
  // A path that leads to the file, whether it has a name or not.
  const std::string& Path() const { return path_; }

  // Gives the file its name. EEXIST when that is taken and may not be replaced.
  int Name(const std::string& path, bool replace);

 private:
  int CreateWithFreshName(const std::string& folder, mode_t permissions);
  int Link(const std::string& path) const;
  int Rename(const std::string& path, bool replace);
  int LinkOver(const std::string& path);

  Descriptor file_;
  std::string path_;
  bool isNamed_ = false;  // under a name that is not the final one
};

}  // namespace platform::posix
