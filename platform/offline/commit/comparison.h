// Whether the machine is what changes expect it to be, and can become what they say.
#pragma once

#include "platform/error.h"
#include "platform/machine_commit.h"
#include "platform/offline/commit/machine_tree.h"
#include "platform/offline/commit/meter.h"
#include "platform/offline/commit/outline.h"

namespace platform::posix {

// Lists what differs; nothing is changed. The code is that of something that can't be looked at.
Code FindConflicts(const machine::ChangeSet& changes, const Outline& outline, MachineTree* tree,
                   Meter* meter, cvn::List<machine::Conflict>* conflicts);

}  // namespace platform::posix
