// What a file has beside its content.
#pragma once

#include <sys/stat.h>

#include <string>

#include "platform/error.h"

namespace platform::posix {

// Gives the open file `to` the owner, permissions and extended attributes of the open file `from`,
// whose status is `entry`. What the volume can't keep, and what only the system may give, is left
// out. After a failure `to` has a part of them.
Code CopyMetadata(int from, const struct stat& entry, int to);

// The same for the file, and no link, at `path`.
Code CopyMetadata(const std::string& path, const struct stat& entry, int to);

}  // namespace platform::posix
