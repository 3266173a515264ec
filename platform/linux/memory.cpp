#include "platform/memory.h"

#include <malloc.h>

namespace platform {

void GiveBackMemory() { malloc_trim(0); }

}  // namespace platform
