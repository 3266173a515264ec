#include "launcher/machine_check.h"

#include "platform/machine.h"
#include "platform/private_folder.h"
#include "platform/volume_state.h"
#include "support/format.h"

namespace tessel {
namespace {

namespace machine = platform::machine;

MachineFault FaultOfFolder(const cvn::String& folder, cvn::StringView problem) {
  return {kMachineUnrecognized,
          cvn::Format(u"The machine '%s' is refused: %s. Mount the Windows volume there, or let "
                      u"TESSEL_MACHINE name the folder where it is.",
                      folder, problem)};
}

MachineFault FaultOfRegistry(const cvn::String& folder, cvn::StringView problem) {
  return {kMachineUnreadable,
          cvn::Format(u"The machine '%s' is refused: %s. Repair or restore its hives SOFTWARE and "
                      u"SYSTEM in Windows\\System32\\config, or run as an account that may read "
                      u"them.",
                      folder, problem)};
}

cvn::String ProblemOfFolder(platform::Code opened, const cvn::String& folder) {
  switch (opened) {
    case machine::kUnrecognizedVolume:
      return u"it has no folder Windows\\System32\\config, and so is no Windows volume";
    case platform::kPathNotFound:
      return folder.Empty() ? u"TESSEL_MACHINE is empty" : u"there is no such folder";
    case platform::kDirectory:
      return u"it is no folder";
    case platform::kAccessDenied:
      return u"access is denied";
    default:
      return cvn::Format(u"it can't be opened, or made (error %u)", opened);
  }
}

MachineFault HibernationFault(const cvn::String& folder) {
  return {
      kMachineHibernated,
      cvn::Format(u"The machine '%s' is refused: its Windows is hibernated, or was shut down with "
                  u"fast startup, or hiberfil.sys can't be read. Start Windows and shut it down "
                  u"by 'shutdown /s'; if it can't start and what was open may be lost, remove "
                  u"hiberfil.sys.",
                  folder)};
}

// The volume isn't one to be written to now.
std::optional<MachineFault> FaultOfVolume(const cvn::String& folder) {
  // For the trace, the event, and what the registry logs.
  constexpr std::uint64_t kLeastRoom = 1 << 20;
  machine::VolumeState state;
  if (const platform::Code code = machine::LookAtVolume(&state); code != platform::kSuccess) {
    return FaultOfFolder(folder, ProblemOfFolder(code, folder));
  }
  if (state.isHibernated) {
    return HibernationFault(folder);
  }
  if (state.isReadOnly) {
    return MachineFault{
        kMachineReadOnly,
        cvn::Format(u"The machine '%s' is refused: it is mounted read-only. Mount it for writing. "
                    u"A driver that won't do so keeps a volume from harm that Windows didn't leave "
                    u"clean: start Windows, let it check the disk, and shut it down by 'shutdown "
                    u"/s'.",
                    folder)};
  }
  if (state.freeBytes < kLeastRoom) {
    return MachineFault{
        kMachineFull,
        cvn::Format(u"The machine '%s' is refused: its volume has no room for the trace of the "
                    u"run. Free 1 MiB there, or more if the patch needs it.",
                    folder)};
  }
  return std::nullopt;
}

MachineFault BusyFault(const cvn::String& folder) {
  return {
      kMachineBusy,
      cvn::Format(u"The machine '%s' is refused: 'tlx apply' or 'tlx undo' has had it alone for "
                  u"half a minute. Run again when that has ended.",
                  folder)};
}

MachineFault UnfinishedFault(const cvn::String& folder, platform::Code why) {
  return {
      kMachineUnfinished,
      cvn::Format(u"The machine '%s' is refused: 'tlx apply' or 'tlx undo' was interrupted there "
                  u"and can't be finished: %s.",
                  folder, ProblemOfPending(why))};
}

cvn::String ProblemOfRegistry(platform::Code code) {
  switch (code) {
    case platform::kFileNotFound:
      return u"a hive of its registry is missing";
    case platform::kBadDatabase:
      return u"its registry is damaged";
    case platform::kAccessDenied:
      return u"its registry can't be read, since access is denied";
    default:
      return cvn::Format(u"its registry can't be read (error %u)", code);
  }
}

}  // namespace

MachineOpening ShareOpenedMachine(machine::MachineLock* lock) {
  MachineOpening opening;
  opening.code = machine::ShareMachine(lock, &opening.found, &opening.why);
  return opening;
}

cvn::StringView WordsOf(machine::PendingCommit found) {
  switch (found) {
    case machine::PendingCommit::Finished:
      return u"an interrupted 'tlx apply' or 'tlx undo' was finished";
    case machine::PendingCommit::Dropped:
      return u"an interrupted 'tlx apply' or 'tlx undo', which had changed nothing, was cleared "
             u"away";
    case machine::PendingCommit::None:
      break;
  }
  return {};
}

cvn::String ProblemOfPending(platform::Code why) {
  switch (why) {
    case platform::files::kForeignPlace:
      return u"its folder C:\\$TesselCommit is another account's; run as that one, or remove the "
             u"folder if nobody here has made it";
    case platform::files::kNotPrivate:
      return u"others can write to its folder C:\\$TesselCommit, or that is no folder, so nothing "
             u"in "
             u"it is believed; find out who made it, and remove it";
    case machine::kCorrupt:
      return u"its journal in C:\\$TesselCommit is damaged; restore the machine, or remove that "
             u"folder to take the machine as it is";
    case machine::kLaterJournal:
      return u"a later release has begun it, which is to finish it";
    case platform::kDiskFull:
      return u"the disk is full; make room there";
    default:
      return cvn::Format(u"error %u; see to that, and run again", why);
  }
}

std::optional<MachineFault> FindVolumeFault(const MachineOpening& opened,
                                            const cvn::String& folder) {
  switch (opened.code) {
    case platform::kSuccess:
      break;
    case machine::kHibernated:
      return HibernationFault(folder);
    case platform::kBusy:
      return BusyFault(folder);
    case machine::kCommitPending:
      return UnfinishedFault(folder, opened.why);
    default:
      return FaultOfFolder(folder, ProblemOfFolder(opened.code, folder));
  }
  return FaultOfVolume(folder);
}

std::optional<MachineFault> FindMachineFault(const MachineOpening& opened,
                                             const cvn::String& folder) {
  if (std::optional<MachineFault> fault = FindVolumeFault(opened, folder)) {
    return fault;
  }
  const platform::Code code = machine::CheckRegistry();
  if (code != platform::kSuccess) {
    return FaultOfRegistry(folder, ProblemOfRegistry(code));
  }
  return std::nullopt;
}

MachineFault UnknownVersionFault(const cvn::String& folder) {
  return FaultOfRegistry(folder, u"its registry doesn't tell which Windows it is");
}

}  // namespace tessel
