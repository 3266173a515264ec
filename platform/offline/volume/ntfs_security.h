// Security descriptors where the volume is NTFS. Elsewhere nothing of this does anything, beyond a
// status of what it is asked of.
#pragma once

#include <sys/types.h>

#include "platform/error.h"
#include "platform/linux/file_names.h"

namespace platform::posix {

// The extended attribute by which the driver hands over the descriptors of `volume`, on which what
// is `opened` lies: "system.ntfs_acl" of ntfs-3g, "system.ntfs_security" of the kernel's driver.
// Null where the volume is not NTFS. Each volume is asked once in a process, and known by its
// number.
const char* DescriptorAttribute(int opened, dev_t volume);

// Gives the open file `made`, which is new in the open folder `folder`, the descriptor that Windows
// would have it inherit: drivers give full access to everyone, or what the host's permissions come
// to. What this account may not set stays. What a folder passes on is worked out once in a process.
Code InheritSecurity(int folder, int made);

// Makes a folder, as mkdirat, that inherits likewise. It has no ARCHIVE, as ntfs-3g would have it.
// 183 when the name is taken.
Code MakeFolder(FileAt place, mode_t permissions);

// Gives an open file a descriptor by which its owner alone has access.
Code KeepForOwner(int file);

}  // namespace platform::posix
