// Files and folders for their owner alone.
#pragma once

#include "platform/files.h"

namespace platform::files {

// Creates a file for writing that only its owner can read from the start on (an
// administrator's rights aside), and that others cannot open meanwhile. 80 when it is there;
// otherwise the codes of Open.
Code CreatePrivate(cvn::StringView path, File* file);

// Creates a folder, as CreateDirectory. On Linux only its owner can enter it, and one that is
// there already becomes so, as this account's own; on Windows the folder that it lies in decides.
Code CreatePrivateDirectory(cvn::StringView path);

}  // namespace platform::files
