// Files that the tool reads and makes. Where one is wanted, "-" is standard input or standard
// output. What was read is remembered, and nothing is written to it, whatever name leads there.
#pragma once

#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/whole_file.h"
#include "support/string.h"

namespace tlx {

// Forgets what was read: the beginning of a command.
void ForgetReadFiles();

// Remembers an open file as one that is read.
void RememberReadFile(const platform::files::File& file);

// Reads the whole of a file, or of standard input, which can be had only once: 259 from then on.
// Other codes as those of platform::ReadWholeFile.
platform::Code ReadInput(cvn::StringView path, std::string* bytes);

// A file to be made, complete or not at all, or standard output.
class OutputPlace {
 public:
  // `path` outlives it.
  explicit OutputPlace(cvn::StringView path);

  // Whether there is a file already.
  bool IsThere() const;
  // Whether both lead to one file, as far as it is there, or both to standard output.
  bool IsSame(const OutputPlace& other) const;

  // Each returns the exit code, and tells of a failure. The bytes outlive Finish.
  int Prepare(std::string_view bytes, platform::OutputFile::Readers readers);
  int Finish();
  // Removes the file that Finish made, where it can.
  void Undo();

 private:
  cvn::StringView path_;
  platform::OutputFile file_;
  bool isStream_;
  std::string_view bytes_;
};

// Refuses a file to be written that would lie in the folder, or below it. "-" and an empty path are
// none. The exit code, with words for a refusal.
int RefuseWithin(cvn::StringView path, cvn::StringView folder);

// Writes a file that anybody may read, or standard output. On failure tells the user. Returns the
// exit code.
int WriteWholeFile(cvn::StringView path, std::string_view bytes);

// Writes a text in UTF-8, which ends with a line feed, to a file as above, or to standard output
// as text when the path is empty. Returns the exit code.
int WriteText(cvn::StringView path, std::string_view text);

}  // namespace tlx
