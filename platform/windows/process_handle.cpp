#include <algorithm>
#include <array>

#include "platform/process.h"
#include "platform/stop_request.h"
#include "platform/windows/wide.h"

namespace platform::process {
namespace {

using windows::LastErrorKeeper;

// One that isn't open has the value that Windows takes for the calling process itself.
HANDLE HandleOf(const Handle& process) {
  return process.IsOpen() ? reinterpret_cast<HANDLE>(process.Value()) : nullptr;
}

// As WaitForMultipleObjects for all, until the program is asked to stop. One call can't wait for
// all of some and any of others.
DWORD WaitForHandles(std::span<const HANDLE> handles, std::uint32_t milliseconds) {
  constexpr std::uint32_t kLongestWait = 100;
  for (std::uint32_t left = milliseconds;;) {
    const std::uint32_t once = std::min(left, kLongestWait);
    const DWORD result =
        ::WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), TRUE, once);
    left -= left == kInfinite ? 0 : once;
    if (result != WAIT_TIMEOUT || left == 0) {
      return result;
    }
    if (stop::IsAsked()) {
      ::SetLastError(kCancelled);
      return WAIT_FAILED;
    }
  }
}

}  // namespace

void Handle::Close() {
  if (IsOpen()) {
    LastErrorKeeper lastError;
    ::CloseHandle(HandleOf(*this));
    value_ = kNone;
  }
}

Code Open(std::uint32_t id, std::uint32_t access, Handle* process) {
  LastErrorKeeper lastError;
  const HANDLE opened = ::OpenProcess(access, FALSE, id);
  if (opened != nullptr) {
    *process = Handle(reinterpret_cast<std::intptr_t>(opened));
  }
  return lastError.Outcome(opened != nullptr);
}

std::uint32_t Wait(const Handle& process, std::uint32_t milliseconds) {
  return WaitForAll({&process, 1}, milliseconds);
}

std::uint32_t WaitForAll(std::span<const Handle> processes, std::uint32_t milliseconds) {
  LastErrorKeeper lastError;
  std::array<HANDLE, kMostWaitHandles> handles{};
  if (processes.size() > handles.size()) {
    ::SetLastError(ERROR_INVALID_PARAMETER);
    lastError.Settle(false);
    return kWaitFailed;
  }
  const auto count = static_cast<DWORD>(processes.size());
  for (DWORD i = 0; i < count; ++i) {
    handles[i] = HandleOf(processes[i]);
  }
  const DWORD result = WaitForHandles(std::span(handles).first(count), milliseconds);
  lastError.Settle(result != WAIT_FAILED);
  return result < count ? std::uint32_t{kSuccess} : std::uint32_t{result};
}

Code Terminate(const Handle& process, std::uint32_t exitCode) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::TerminateProcess(HandleOf(process), exitCode) != 0);
}

}  // namespace platform::process
