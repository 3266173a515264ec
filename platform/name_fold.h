// When two names of files are one to Windows.
#pragma once

#include "support/string.h"

namespace platform::paths {

// The form by which file systems of Windows compare names: each code unit in upper case, in no
// language's rules. A path's separators and dots stay.
cvn::String FoldName(cvn::StringView name);

}  // namespace platform::paths
