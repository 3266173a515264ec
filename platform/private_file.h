// Files for their owner alone.
#pragma once

#include "platform/files.h"

namespace platform::files {

// Creates a file for writing that only its owner can read from the start on (an
// administrator's rights aside), and that others cannot open meanwhile. 80 when it is there;
// otherwise the codes of Open.
Code CreatePrivate(cvn::StringView path, File* file);

}  // namespace platform::files
