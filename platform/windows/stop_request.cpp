#include "platform/stop_request.h"

#include "platform/windows/stop_event.h"

namespace platform {
namespace {

HANDLE stopEvent = nullptr;

BOOL WINAPI Remember(DWORD kind) {
  ::SetEvent(stopEvent);
  if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) {
    // The system ends the process when this returns, and gives it some seconds until then.
    ::Sleep(INFINITE);
  }
  return TRUE;
}

}  // namespace

namespace stop {

void Watch() {
  windows::LastErrorKeeper lastError;
  if (stopEvent == nullptr) {
    stopEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (stopEvent != nullptr) {
      ::SetConsoleCtrlHandler(Remember, TRUE);
    }
  }
}

bool IsAsked() {
  windows::LastErrorKeeper lastError;
  return stopEvent != nullptr && ::WaitForSingleObject(stopEvent, 0) == WAIT_OBJECT_0;
}

int EndStatus(std::int32_t exitCode) {
  return IsAsked() ? static_cast<int>(STATUS_CONTROL_C_EXIT) : exitCode;
}

}  // namespace stop

namespace windows {

HANDLE StopEvent() { return stopEvent; }

}  // namespace windows
}  // namespace platform
