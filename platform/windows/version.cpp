#include "platform/version.h"

#include "platform/windows/wide.h"

namespace platform::version {

using windows::FindFunction;

std::optional<WindowsVersion> Get() {
  windows::LastErrorKeeper lastError;
  OSVERSIONINFOEXW info{};
  static_assert(sizeof(info) == 284);
  info.dwOSVersionInfoSize = sizeof(info);
  auto* getVersion = FindFunction<BOOL WINAPI(OSVERSIONINFOEXW*)>("Kernel32.dll", "GetVersionExW");
  if (getVersion == nullptr || getVersion(&info) == 0) {
    return std::nullopt;
  }
  return WindowsVersion{info.dwMajorVersion, info.dwMinorVersion,
                        info.wProductType == VER_NT_WORKSTATION};
}

bool IsBuildAtLeast(std::uint32_t build) {
  windows::LastErrorKeeper lastError;
  OSVERSIONINFOEXW wanted{};
  wanted.dwOSVersionInfoSize = sizeof(wanted);
  wanted.dwBuildNumber = build;
  const ULONGLONG condition = ::VerSetConditionMask(0, VER_BUILDNUMBER, VER_GREATER_EQUAL);
  return ::VerifyVersionInfoW(&wanted, VER_BUILDNUMBER, condition) != 0;
}

std::optional<std::uint16_t> NativeMachine() {
  windows::LastErrorKeeper lastError;
  USHORT process = 0;
  USHORT native = 0;
  auto* isWow64Process =
      FindFunction<BOOL WINAPI(HANDLE, USHORT*, USHORT*)>("kernel32.dll", "IsWow64Process2");
  if (isWow64Process == nullptr || isWow64Process(::GetCurrentProcess(), &process, &native) == 0) {
    return std::nullopt;
  }
  return native;
}

}  // namespace platform::version
