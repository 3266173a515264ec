#include "platform/error.h"

namespace platform {
namespace {

thread_local Code lastError = kSuccess;

}  // namespace

Code LastError() { return lastError; }
void SetLastError(Code code) { lastError = code; }

}  // namespace platform
