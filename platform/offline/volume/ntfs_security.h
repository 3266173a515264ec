// Security descriptors where the volume is NTFS; volume.h has what other parts use of it.
#pragma once

#include <sys/types.h>

#include "platform/error.h"

namespace platform::posix {

// The extended attribute by which the driver hands over the descriptors of `volume`, on which what
// is `opened` lies: "system.ntfs_acl" of ntfs-3g, "system.ntfs_security" of the kernel's driver.
// Null where the volume is not NTFS. Each volume is asked once in a process, and known by its
// number.
const char* DescriptorAttribute(int opened, dev_t volume);

// Gives an open file a descriptor by which its owner alone has access.
Code KeepForOwner(int file);

}  // namespace platform::posix
