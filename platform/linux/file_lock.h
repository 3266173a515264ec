// Locks on open files and folders, which programs of this kind respect.
#pragma once

#include "platform/error.h"

namespace platform::posix {

// Takes the lock of an open file or folder, to share it or alone; a lock that it has is given up
// first. 170 when others kept it for half a minute. Without one, and with success, on a file system
// that has no locks.
Code WaitForLock(int descriptor, bool alone, bool* isHeld);

}  // namespace platform::posix
