// The share modes of open files, as an agreement between the programs that use this layer.
#pragma once

#include <sys/stat.h>

#include "platform/files.h"
#include "platform/linux/file_names.h"

namespace platform::posix {

// Makes known, for as long as the open file `descriptor` lives, what it does and what it lets
// others do. kSharingViolation when it and another open file of the same file do not allow each
// other. A file system that has no locks lets everything pass.
Code TakeShare(int descriptor, files::Access access, files::Share share);

// Closes what is kept open of the host's list of locks.
void ForgetLocks();

// True when a program that uses this layer has the regular file open, whose status is `entry`.
bool IsInUse(FileAt file, const struct stat& entry);

}  // namespace platform::posix
