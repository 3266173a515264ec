// The memory of the process.
#pragma once

namespace platform {

// Gives the system what was freed and is still kept for later. For after something large, whose
// memory would stand beside that of the next.
void GiveBackMemory();

}  // namespace platform
