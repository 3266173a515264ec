#include "platform/process.h"

#include "platform/windows/wide.h"

namespace platform::process {

std::uint32_t CurrentId() { return ::GetCurrentProcessId(); }

void EnablePrivileges(std::span<const cvn::StringView> names) {
  windows::LastErrorKeeper lastError;
  HANDLE token = nullptr;
  if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token) ==
      0) {
    return;
  }
  for (const cvn::StringView name : names) {
    TOKEN_PRIVILEGES privilege{};
    privilege.PrivilegeCount = 1;
    privilege.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (::LookupPrivilegeValueW(nullptr, windows::Wide(cvn::PathString(name)),
                                &privilege.Privileges[0].Luid) != 0) {
      ::AdjustTokenPrivileges(token, FALSE, &privilege, 0, nullptr, nullptr);
    }
  }
  ::CloseHandle(token);
}

}  // namespace platform::process
