#include "tools/tlx/machine_turn.h"

#include <optional>

#include "launcher/machine_check.h"
#include "platform/machine.h"
#include "platform/private_folder.h"
#include "platform/streams.h"
#include "platform/volume_state.h"
#include "support/format.h"
#include "tools/tlx/machine_text.h"
#include "tools/tlx/messages.h"
#include "tools/tlx/patch_operand.h"
#include "tools/tlx/status_line.h"
#include "tools/tlx/view_options.h"

namespace tlx {
namespace {

namespace machine = platform::machine;
using platform::Code;
using platform::kSuccess;

Code OpenMachine(const Options& options) {
  return options.Has(kMachineOption.name) ? machine::Use(options.Value(kMachineOption.name))
                                          : machine::UseDefault();
}

void TellFound(cvn::StringView name, machine::PendingCommit found) {
  if (found != machine::PendingCommit::None) {
    WarnOfFile(name, tessel::WordsOf(found));
  }
}

cvn::String ProblemOf(Code code) {
  switch (code) {
    case platform::kDiskFull:
      return u"its volume has no room for the changes";
    case platform::files::kNotPrivate:
      return u"other accounts can't be kept out of a folder at its root; mount the volume with "
             u"permissions (ntfs-3g -o permissions)";
    case machine::kCorrupt:
      return u"the bytes of a change aren't those that were told of it";
    case platform::kInvalidParameter:
      return u"the changes contradict each other";
    case platform::kNotSupported:
      return u"its volume has no place for the attributes of a file";
    case machine::kHibernated:
      return u"its Windows is hibernated; start that and shut it down by 'shutdown /s'";
    case platform::kAlreadyExists:
      return u"another commit is there; 'tlx machine check' ends it";
    default:
      return DescribeCode(code);
  }
}

}  // namespace

cvn::String MachineName(const Options& options) {
  return options.Has(kMachineOption.name) ? cvn::String(options.Value(kMachineOption.name))
                                          : machine::DefaultFolder();
}

int HaveMachineAlone(const Options& options, machine::MachineLock* lock) {
  if (!options.Has(kMachineOption.name) && IsDefaultMachineMissing()) {
    return kExitBadInput;
  }
  const cvn::String name = MachineName(options);
  tessel::MachineOpening opening(OpenMachine(options));
  if (opening.code == platform::kNotSupported) {
    return FailOnFile(name, kNoMachinesHere);
  }
  if (opening.code == kSuccess) {
    opening.code = lock->TakeAlone();
    if (opening.code == platform::kBusy) {
      return FailOnFile(name,
                        u"others have used it for half a minute; try again when they have "
                        u"ended");
    }
  }
  if (opening.code == kSuccess) {
    opening.why = machine::FinishPending(&opening.found);
    opening.code = opening.why == kSuccess ? kSuccess : machine::kCommitPending;
    TellFound(name, opening.found);
  }
  const std::optional<tessel::MachineFault> fault = tessel::FindVolumeFault(opening, name);
  if (fault) {
    return FailOnFile(name, fault->words);
  }
  if (!lock->IsHeld()) {
    WarnOfFile(name, u"its file system has no locks, so nothing keeps others from it meanwhile");
  }
  return kExitDone;
}

int ShareMachine(const Options& options, machine::MachineLock* lock) {
  if (OpenMachine(options) != kSuccess) {
    return kExitDone;
  }
  const cvn::String name = MachineName(options);
  const tessel::MachineOpening opening = tessel::ShareOpenedMachine(lock);
  TellFound(name, opening.found);
  if (opening.code == kSuccess) {
    return kExitDone;
  }
  const std::optional<tessel::MachineFault> fault = tessel::FindVolumeFault(opening, name);
  return FailOnFile(name, fault ? fault->words : DescribeCode(opening.code));
}

int CommitChanges(cvn::StringView machine, const machine::ChangeSet& changes,
                  machine::ChangeBytes* bytes, CommitOutcome* outcome) {
  StatusLine status;
  const auto progress = [&status](std::uint64_t done, std::uint64_t all) {
    if (status.IsDue()) {
      status.Show(cvn::Format(u"Committing: %llu %%", all == 0 ? 100 : done * 100 / all));
    }
  };
  machine::CommitResult result;
  const Code code = machine::Commit(changes, *bytes, progress, &result);
  outcome->isBegun = code == kSuccess || result.isPending;
  outcome->conflicts = result.conflicts;
  if (code == kSuccess) {
    return kExitDone;
  }
  if (code == machine::kConflict) {
    return kExitBadInput;
  }
  return FailOnFile(
      machine,
      result.isPending
          ? cvn::Format(
                u"the changes have begun, but something stopped them: %s. See to that; then "
                u"'tlx machine check', or the next run, ends them",
                ProblemOf(code))
          : cvn::Format(u"nothing was changed: %s", ProblemOf(code)));
}

int TellConflicts(cvn::StringView machine, const cvn::List<machine::Conflict>& conflicts) {
  for (const machine::Conflict& conflict : conflicts) {
    FailOnFile(Printable(conflict.place), conflict.problem);
  }
  return FailOnFile(machine, cvn::Format(u"nothing was changed, because of %u conflicts",
                                         static_cast<std::uint32_t>(conflicts.size())));
}

cvn::String CountsOf(const machine::ChangeSet& changes) {
  const std::size_t files = changes.files.size();
  const std::size_t keys = changes.keys.size();
  return cvn::Format(u"%u %s, %u %s", files,
                     files == 1 ? u"file, folder or link" : u"files, folders and links", keys,
                     keys == 1 ? u"key" : u"keys");
}

}  // namespace tlx
