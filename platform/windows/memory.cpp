#include "platform/memory.h"

#include <malloc.h>

namespace platform {

void GiveBackMemory() { _heapmin(); }

}  // namespace platform
