// Change sets of rehearsals, kept.
#pragma once

#include "changes/kept_set.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

// The record of a set in that state.
tessel::SetRecord RecordOf(const Rehearsal& rehearsal, const RunRequest& request,
                           tessel::SetState state);

// Keeps what a rehearsal would have changed in a new folder, whose path has its drive. `bytes` are
// those of the view. The exit code, with words on standard error for a failure.
int KeepRehearsal(cvn::StringView folder, const Rehearsal& rehearsal, const RunRequest& request,
                  platform::machine::ChangeBytes* bytes);

}  // namespace tlx
