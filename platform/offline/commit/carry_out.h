// The steps of a commit that has begun.
#pragma once

#include "platform/error.h"
#include "platform/offline/commit/journal.h"
#include "platform/offline/commit/machine_tree.h"
#include "platform/offline/commit/meter.h"
#include "platform/offline/commit/staging.h"

namespace platform::posix {

// Takes all steps, also those that were taken before, and brings what they changed to the disk.
Code CarryOut(const CommitPlan& plan, const Staging& staging, MachineTree* tree, Meter* meter);

}  // namespace platform::posix
