#include "platform/libraries.h"

namespace platform::libraries {

// The loader's search is narrow as it is.
void NarrowSearch() {}

}  // namespace platform::libraries
