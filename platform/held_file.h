// Files that stay as they are while they are read more than once.
#pragma once

#include "platform/error.h"
#include "platform/files.h"
#include "support/string.h"

namespace platform::files {

// Keeps the content of a small file from being changed between two readings.
//
// On Windows that is the file itself, open without letting others write. Linux enforces no
// such thing, so there it is a copy in memory that no process can change, this one included; it has
// no extension.
class HeldFile {
 public:
  // `original` was opened for reading at `path`, by OpenRegular or below a held folder. 223 for a
  // file that is too large to be copied; otherwise the codes of Read and Write.
  Code Hold(File original, cvn::StringView path);

  // Where to read the content; empty unless it is held.
  cvn::StringView Path() const { return path_; }

 private:
  File file_;
  cvn::String path_;
};

}  // namespace platform::files
