// Names of files that Windows can't have.
#pragma once

#include "support/string.h"

namespace tlx {

// Why Windows can't have a file or a folder of this name, which is one component of a path, as the
// end of a sentence; empty when it can. The rules are those of Microsoft's "Naming Files, Paths,
// and Namespaces".
cvn::String FaultOfName(cvn::StringView name);

}  // namespace tlx
