// Looking below a folder without ever leaving it.
#pragma once

#include <string>

namespace platform::posix {

// Finds `path`, a relative one without "..", below the open folder `folder`, and gives a descriptor
// that only tells what is there (O_PATH): a device or a pipe isn't opened by that. Links are
// followed while they stay below the folder; where the host can't see to that, none is. Negative
// on failure, with errno: EXDEV or ELOOP for such a link.
int FindBelow(int folder, const std::string& path);

// Opens `path`, as for FindBelow, with `flags` of open. No link is followed: ELOOP. Negative on
// failure, with errno.
int OpenBelow(int folder, const std::string& path, int flags);

// Opens what such a descriptor has found, with `flags` of open. Negative on failure, with errno.
int OpenFound(int found, int flags);

}  // namespace platform::posix
