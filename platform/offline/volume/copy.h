// Copying a file to a place that was found to be free for it.
#pragma once

#include "platform/error.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

struct CopyOptions {
  bool replace = false;  // the target may be there
  bool flush = false;    // return when the content has reached the disk
};

// Copies the file `source` to `target`, both as Resolve gave them. The copy is made under a name of
// its own beside the target and takes the target's name when it is whole, so there is never half a
// file under that name, even when the process is killed. (That may leave the other,
// "tessel-....tmp", until the next copy into that folder.) The owner, the permissions and the
// extended attributes of a target that is replaced stay; its other names, if it has hard links,
// keep the old content.
Code CopyFile(const HostPath& source, const HostPath& target, CopyOptions options);

}  // namespace platform::posix
