// What is told of a kept change set beside its changes.
#pragma once

#include "changes/kept_set.h"
#include "support/string.h"

namespace tlx {

// "on the machine"
cvn::StringView WordsFor(tessel::SetState state);

// When the run began, as RFC 3339 writes it.
cvn::String TimeText(const tessel::SetRecord& record);

}  // namespace tlx
