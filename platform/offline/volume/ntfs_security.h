// Security descriptors where the volume is NTFS; volume.h has what other parts use of it.
#pragma once

#include <sys/types.h>

#include "platform/error.h"

namespace platform::posix {

// Gives an open file a descriptor by which its owner alone has access.
Code KeepForOwner(int file);

}  // namespace platform::posix
