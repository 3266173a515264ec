// Open processes: descriptors that the host makes readable when the process ends.
#pragma once

#include <sys/types.h>

#include "platform/process.h"

namespace platform::posix {

// Opens a child of this process that has not been waited for. When the handle closes, the child is
// taken off the host's list of processes, at once or whenever it ends.
Code OpenChild(pid_t child, process::Handle* handle);

// Gives the handle of a process that has ended, where none was started.
Code OpenEnded(process::Handle* handle);

}  // namespace platform::posix
