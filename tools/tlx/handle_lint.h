// What there is to say of the handles of a script's documents.
#pragma once

#include "tools/tlx/findings.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// Warns of commands whose handle holds nothing that they work on, whatever way a run comes to them.
void LintHandles(const ScriptFlow& flow, Findings* findings);

}  // namespace tlx
