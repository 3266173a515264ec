// Text files as the runtime's "ccs=UTF-8" append mode writes them, the same bytes on every
// platform.
#pragma once

#include <string>

#include "platform/files.h"

namespace platform {

// An open text file that is appended to. A new or empty file begins with the byte-order mark of
// UTF-8; a line feed is written as CR LF. A file that has the mark of UTF-16 (little-endian) goes
// on in that encoding, and one with the mark of big-endian UTF-16 is refused with 87, as by the
// runtime. Others may read it meanwhile.
class TextFile {
 public:
  Code OpenForAppend(cvn::StringView path);
  bool IsOpen() const { return file_.IsOpen(); }
  void Close() { file_.Close(); }

  // Writes `text` to the file at once; nothing stays in a buffer of this process.
  Code Write(cvn::StringView text);

 private:
  files::File file_;
  bool utf16_ = false;
  std::string bytes_;  // reused by each Write
};

}  // namespace platform
