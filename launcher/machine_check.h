// Whether the machine is one that can be serviced at all: asked before anything of a patch is read.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/error.h"
#include "platform/machine_commit.h"
#include "support/string.h"

namespace tessel {

// Exit codes: somebody else has the machine alone (ERROR_BUSY), or what an interrupted commit left
// there can't be ended (ERROR_INSTALL_SUSPEND); the volume is read-only (ERROR_WRITE_PROTECT), is
// too full for what a run writes of itself (ERROR_DISK_FULL), or is hibernated (ERROR_HIBERNATED);
// the folder is no Windows system volume (ERROR_UNRECOGNIZED_VOLUME), or its registry can't be read
// (ERROR_BADDB).
inline constexpr std::int32_t kMachineReadOnly = 19;
inline constexpr std::int32_t kMachineFull = 112;
inline constexpr std::int32_t kMachineBusy = 170;
inline constexpr std::int32_t kMachineHibernated = 726;
inline constexpr std::int32_t kMachineUnrecognized = 1005;
inline constexpr std::int32_t kMachineUnreadable = 1009;
inline constexpr std::int32_t kMachineUnfinished = 1604;

// Why a machine is refused.
struct MachineFault {
  std::int32_t exitCode;
  cvn::String words;  // they name the machine's folder, what is wrong, and the way out
};

// How a machine was opened.
struct MachineOpening {
  MachineOpening(platform::Code itsCode = platform::kSuccess) : code(itsCode) {}

  platform::Code code;
  platform::machine::PendingCommit found = platform::machine::PendingCommit::None;
  platform::Code why;  // it can't be ended, when `code` is kCommitPending
};

// For the opened machine: shares its lock, and ends what an interrupted commit has left.
MachineOpening ShareOpenedMachine(platform::machine::MachineLock* lock);

// What was found, in words; empty for nothing.
cvn::StringView WordsOf(platform::machine::PendingCommit found);

// Why an interrupted commit can't be ended, and what is to be done.
cvn::String ProblemOfPending(platform::Code why);

// What is wrong with the machine in `folder`; nothing when it can be serviced.
std::optional<MachineFault> FindMachineFault(const MachineOpening& opened,
                                             const cvn::String& folder);

// The same as far as it can be told without the registry.
std::optional<MachineFault> FindVolumeFault(const MachineOpening& opened,
                                            const cvn::String& folder);

// The words of a fault that only the gates can see: the machine's version of Windows can't be read.
MachineFault UnknownVersionFault(const cvn::String& folder);

}  // namespace tessel
