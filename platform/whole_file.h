// Whole files, read and written at once.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace platform {

// The largest file that is read whole: lengths of files are counted in 31 bits.
inline constexpr std::size_t kLargestWholeFile = 0x7FFFFFFF;

// Reads the file at `path`, which others can't write meanwhile. 223 when it is larger than
// kLargestWholeFile, else the codes of files::Open and Read.
Code ReadWholeFile(cvn::StringView path, std::string* bytes);

// The same of an open file, from its position on.
Code ReadWholeFile(files::File* file, std::string* bytes);

// A file that appears under its name complete or not at all: it is written beside that name and
// moved over it by Commit. Without a Commit the name keeps what it had, and nothing is left; what a
// killed process leaves beside it, the next one removes.
// An older file under the name hands on its permissions and attributes, unless only the owner may
// read the new one. One that has other names too (hard links) is written over instead, so that all
// of them have the new content, as when a program on Windows saves it: who is killed in that moment
// leaves a part of both.
class OutputFile {
 public:
  enum class Readers { Anybody, OwnerOnly };

  explicit OutputFile(cvn::StringView path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  cvn::StringView Path() const { return path_; }
  // Where the file is until its Commit.
  cvn::StringView TemporaryPath() const { return temporaryPath_; }
  // One of these is called, once. `write` is given the open file.
  Code Write(std::string_view bytes, Readers readers);
  Code WriteBy(const std::function<Code(files::File*)>& write, Readers readers);
  Code Commit();

 private:
  Code WriteOver();

  cvn::String path_;
  cvn::String temporaryPath_;
  files::File claim_;  // of the temporary file
  bool hasTemporary_ = false;
  Readers readers_ = Readers::Anybody;
};

}  // namespace platform
