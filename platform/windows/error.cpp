#include "platform/error.h"

#include "platform/windows/wide.h"

namespace platform {

Code LastError() { return ::GetLastError(); }

void SetLastError(Code code) { ::SetLastError(code); }

}  // namespace platform
