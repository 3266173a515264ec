// Having the machine, alone or with others, and committing changes to it.
#pragma once

#include "platform/machine_commit.h"
#include "tools/tlx/options.h"

namespace tlx {

// Opens the machine that --machine names, or the one that tessel takes, has it alone for as long as
// `lock` lives, and ends what an interrupted commit has left there. The exit code of a failure that
// it told. Nothing of the machine's registry is read.
int HaveMachineAlone(const Options& options, platform::machine::MachineLock* lock);

// The same beside others, for what changes nothing there. Where the machine can't be opened at all,
// the run tells.
int ShareMachine(const Options& options, platform::machine::MachineLock* lock);

// How the machine is called in messages.
cvn::String MachineName(const Options& options);

struct CommitOutcome {
  bool isBegun = false;  // the changes are on the machine, or will be
  cvn::List<platform::machine::Conflict> conflicts;
};

// Commits with progress, and tells of a failure, but for conflicts. Returns the exit code.
int CommitChanges(cvn::StringView machine, const platform::machine::ChangeSet& changes,
                  platform::machine::ChangeBytes* bytes, CommitOutcome* outcome);

// Tells what keeps changes from being made. Returns the exit code.
int TellConflicts(cvn::StringView machine, const cvn::List<platform::machine::Conflict>& conflicts);

// "3 files and folders, 2 keys".
cvn::String CountsOf(const platform::machine::ChangeSet& changes);

}  // namespace tlx
