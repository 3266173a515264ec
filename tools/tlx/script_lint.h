// What there is to say of a script, from the same commands that the runner has.
#pragma once

#include <tinyxml.h>

#include "support/containers.h"
#include "tools/tlx/findings.h"

namespace tlx {

// Everything that would make the runner refuse to load the document, as errors, and what surely
// surprises, as warnings, in the order of their places. `document` is one that CheckScript accepts.
cvn::List<Finding> LintScript(const TiXmlDocument& document);

}  // namespace tlx
