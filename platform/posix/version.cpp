#include "platform/version.h"

namespace platform::version {
namespace {

// The machine's Windows: the last release of Windows 10 for clients, on x64.
constexpr WindowsVersion kVersion = {10, 0, true};
constexpr std::uint32_t kBuild = 19045;

}  // namespace

std::optional<WindowsVersion> Get() { return kVersion; }
bool IsBuildAtLeast(std::uint32_t build) { return kBuild >= build; }
std::optional<std::uint16_t> NativeMachine() { return kMachineAmd64; }

}  // namespace platform::version
