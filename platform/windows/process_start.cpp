#include <algorithm>
#include <vector>

#include "platform/process.h"
#include "platform/windows/wide.h"

namespace platform::process {

// What runs here is the system's own.
Code TrustFolder(cvn::StringView /*folder*/) { return kSuccess; }

Code Start(cvn::StringView commandLine, cvn::StringView directory, Handle* process) {
  constexpr std::size_t kCapacity = 32768;
  windows::LastErrorKeeper lastError;
  // Wine takes longer ones than Windows does.
  if (commandLine.size() >= kCapacity - 1) {
    ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return lastError.Outcome(false);
  }
  // The callee may write into it.
  std::vector<wchar_t> buffer(kCapacity);
  std::copy(commandLine.begin(), commandLine.end(), buffer.begin());
  const cvn::PathString folder(directory);
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  const BOOL isStarted =
      ::CreateProcessW(nullptr, buffer.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                       folder.Empty() ? nullptr : windows::Wide(folder), &startup, &started);
  const Code code = lastError.Outcome(isStarted != 0);
  if (code == kSuccess) {
    ::CloseHandle(started.hThread);
    *process = Handle(reinterpret_cast<std::intptr_t>(started.hProcess));
  }
  return code;
}

}  // namespace platform::process
