// Whether the machine is one that can be serviced at all: asked before anything of a patch is read.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/error.h"
#include "support/string.h"

namespace tessel {

// Exit codes: the volume is read-only (ERROR_WRITE_PROTECT), is too full for what a run writes of
// itself (ERROR_DISK_FULL), or is hibernated (ERROR_HIBERNATED); the folder is no Windows system
// volume (ERROR_UNRECOGNIZED_VOLUME), or its registry can't be read (ERROR_BADDB).
inline constexpr std::int32_t kMachineReadOnly = 19;
inline constexpr std::int32_t kMachineFull = 112;
inline constexpr std::int32_t kMachineHibernated = 726;
inline constexpr std::int32_t kMachineUnrecognized = 1005;
inline constexpr std::int32_t kMachineUnreadable = 1009;

// Why a machine is refused.
struct MachineFault {
  std::int32_t exitCode;
  cvn::String words;  // they name the machine's folder, what is wrong, and the way out
};

// What is wrong with the machine in `folder`; nothing when it can be serviced. `opened` is the code
// that its opening gave.
std::optional<MachineFault> FindMachineFault(platform::Code opened, const cvn::String& folder);

// The words of a fault that only the gates can see: the machine's version of Windows can't be read.
MachineFault UnknownVersionFault(const cvn::String& folder);

}  // namespace tessel
