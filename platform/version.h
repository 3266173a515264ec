// Which Windows this is; on Linux, which Windows the machine has.
#pragma once

#include <cstdint>
#include <optional>

namespace platform::version {

struct WindowsVersion {
  std::uint32_t major;
  std::uint32_t minor;
  bool workstation;  // wProductType is VER_NT_WORKSTATION
};

// As GetVersionExW of kernel32.dll. Nothing when that function is missing or fails, and on Linux
// when the machine's registry can't be read or has no version in its form.
std::optional<WindowsVersion> Get();

// True when the build number is `build` or greater, by VerifyVersionInfoW.
bool IsBuildAtLeast(std::uint32_t build);

// The IMAGE_FILE_MACHINE_* value of the native machine, by IsWow64Process2. Nothing when that
// function is missing or fails.
std::optional<std::uint16_t> NativeMachine();

inline constexpr std::uint16_t kMachineI386 = 332;
inline constexpr std::uint16_t kMachineAmd64 = 34404;
inline constexpr std::uint16_t kMachineArm64 = 43620;

}  // namespace platform::version
