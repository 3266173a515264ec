// What a run leaves of itself on the machine: its trace, its events, and the folders for them.
#pragma once

#include <cstddef>
#include <span>

#include "platform/machine_changes.h"
#include "support/string.h"

namespace tlx {

// Whether a name is one that a run gives to its event. A script can give it as well.
bool IsEventName(cvn::StringView name);

// Whether one of the changed files, in the order of a change set, is a trace or an event that was
// added, or a folder for these: by its path alone.
bool IsOwn(std::span<const platform::machine::FileChange> changes, std::size_t at);

}  // namespace tlx
