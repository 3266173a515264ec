// Copying a file to a place that was found to be free for it.
#pragma once

#include <sys/stat.h>

#include <memory>
#include <utility>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/atomic_file.h"
#include "platform/linux/descriptor.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

struct CopyOptions {
  bool replace = false;  // the target may be there
  bool flush = false;    // return when the content has reached the disk
};

// Copies the file `source` to `target`, both as Resolve gave them, with its named streams. The copy
// is made under a name of its own beside the target and takes the target's name when it is whole,
// so there is never half a file under that name, even when the process is killed. (That may leave
// the other, "tessel-....tmp", until the next copy into that folder.) The owner, the permissions,
// the descriptor and the time of creation of a target that is replaced stay. A target on C: that
// has other names is written over with the whole copy instead, as Windows does it, so that all of
// them have it: who is killed in that moment leaves a part of both contents.
Code CopyFile(const HostPath& source, const HostPath& target, CopyOptions options);

// The same to the path that a script gave, as files::Copy. Leaves the thread's last error alone.
Code CopyTo(const HostPath& source, cvn::StringView to, bool failIfExists);

// A copy of a file that is whole but for its name. It is gone at the end of its life unless it got
// that; until then nothing is to be seen of it but, on volumes that have no files without names, a
// "tessel-....tmp".
class PreparedCopy {
 public:
  // Makes it in a folder, for a name there that is free. Null when that fails, and for a file so
  // large that to make it in vain would be felt.
  static std::unique_ptr<PreparedCopy> Make(const HostPath& source,
                                            std::shared_ptr<const Descriptor> folder);

  // Whether it lies in the folder where `target` is to be.
  bool IsBeside(const HostPath& target) const;
  // Gives it the name of `target`, as CopyFile does when it has made its copy.
  Code GiveName(const HostPath& target);

 private:
  explicit PreparedCopy(std::shared_ptr<const Descriptor> folder)
      : folder_(std::move(folder)), draft_(folder_->Get()) {}

  const std::shared_ptr<const Descriptor> folder_;
  AtomicFile draft_;
};

// Gives the open file `copy` the attributes and the time of the last write of the file `from`, and
// ARCHIVE, which one that is new has as it is. Where there is no place for attributes it has none.
Code MarkCopy(files::Attributes attributes, const struct stat& from, bool isNew, int copy);

}  // namespace platform::posix
