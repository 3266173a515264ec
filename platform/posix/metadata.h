// What a file has beside its content.
#pragma once

#include <sys/stat.h>

namespace platform::posix {

// Gives the open file `to` the owner, permissions and extended attributes of the open file `from`,
// whose status is `entry`, as far as the host lets this process.
void CopyMetadata(int from, const struct stat& entry, int to);

}  // namespace platform::posix
