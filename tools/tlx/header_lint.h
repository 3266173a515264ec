// What there is to say of a script's header.
#pragma once

#include <tinyxml.h>

#include "tools/tlx/findings.h"

namespace tlx {

// Adds, as warnings, what keeps the gates and the check of the dates from letting the patch with
// this root element run.
void LintHeader(const TiXmlElement& root, Findings* findings);

}  // namespace tlx
