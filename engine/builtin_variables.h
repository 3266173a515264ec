// The variables that every script finds set.
#pragma once

#include "engine/variable_store.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// The folder of the patch's files. The run sets it, after all others.
inline constexpr cvn::StringView kScriptFolderVariable = u"scriptdir";
// A new number at each reference, in any case, unless a variable has that name.
inline constexpr cvn::StringView kRandomVariable = u"random";

// The names of all of them.
cvn::List<cvn::StringView> BuiltinVariables();

// Sets currentdir, enginefname, enginedir (with a separator at its end), arch, os and error ("0").
void SetBuiltinVariables(VariableStore* variables);

}  // namespace tessel
