// Text files as the runtime's "ccs=UTF-8" append mode writes them, the same bytes on every
// platform.
#pragma once

#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/whole_file.h"

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
  std::string bytes_;  // of a short text, used again for the next
};

// A whole text file as the runtime's "wt, ccs=UTF-8" mode writes it: byte-order mark, UTF-8, CR LF.
// The old file stays as it is until the new one takes its place.
class OutputTextFile {
 public:
  explicit OutputTextFile(cvn::StringView path) : file_(path) {}

  // Writes the file beside its name; called once. `text` is UTF-8 with LF. 5 when the old file is
  // hidden or the system's.
  Code Write(std::string_view text);
  // Gives it its name. 5 when the old file is read-only.
  Code Commit() { return file_.Commit(); }

 private:
  OutputFile file_;
};

// Both at once.
Code SaveTextFile(cvn::StringView path, std::string_view text);

// Reads a whole text file as the runtime's "rt, ccs=UTF-8" mode does: UTF-8 or, by its mark,
// little-endian UTF-16; without the mark, with LF for CR LF, and up to the first Ctrl+Z. 87 for
// big-endian UTF-16. `*text` is well-formed UTF-8.
Code ReadTextFile(cvn::StringView path, std::string* text);

}  // namespace platform
