// What there is to say of the ways through a script: labels, jumps, loops, and its end.
#pragma once

#include <tinyxml.h>

#include "tools/tlx/findings.h"
#include "tools/tlx/script_flow.h"

namespace tlx {

// Adds what is wrong with the labels, and warns of loops in which another one takes part, of what
// no run comes to, of handles, and of an end without 'exit'. The last three only when the flow is
// known: every jump has a target, and the script has no unknown command, as `hasUnknown` tells.
void LintFlow(const TiXmlElement& script, const ScriptFlow& flow, bool hasUnknown,
              Findings* findings);

}  // namespace tlx
