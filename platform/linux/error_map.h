// The host's errors as Windows numbers them.
#pragma once

#include "platform/error.h"

namespace platform::posix {

// The code for a value of errno; 0 is success. `ioFault` stands for EIO, whose code depends on what
// was being done. Where one is given a file's content was to be had, and EOPNOTSUPP is
// kCantAccessFile: a driver for NTFS has met a form (compressed, deduplicated) that it can't read.
Code CodeOf(int error, Code ioFault = kGenFailure);

// Makes `code` the thread's last error, and gives it back.
Code Fail(Code code);

// The same for a failure; success leaves the last error alone.
Code Report(Code code);

}  // namespace platform::posix
