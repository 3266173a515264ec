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
  // Fails as Open does; 223 for a file that is too large to be copied.
  Code Hold(cvn::StringView path);
  void Release();

  // Where to read the content. On Windows the file's path, held or not; on Linux empty unless it is
  // held.
  cvn::StringView Path() const { return path_; }

 private:
  File file_;
  cvn::String path_;
};

// A path that leads to an open file even after its name is gone. On Windows, where a file that is
// open keeps its name, that is `path`, by which it was opened; on Linux one that is good while the
// file is open in this process.
cvn::String PathOfOpenFile(const File& file, cvn::StringView path);

}  // namespace platform::files
