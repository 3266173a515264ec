// The request that the program end, as something to wait for.
#pragma once

#include "platform/windows/wide.h"

namespace platform::windows {

// Is set from the first request on; null while they aren't watched for.
HANDLE StopEvent();

}  // namespace platform::windows
