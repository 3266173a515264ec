// The variables that every script finds set.
#pragma once

#include "engine/variable_store.h"

namespace tessel {

// Sets currentdir, enginefname, enginedir (with a separator at its end), arch, os and error ("0").
void SetBuiltinVariables(VariableStore* variables);

}  // namespace tessel
