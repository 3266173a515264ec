// Whole files, read and written at once.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/files.h"

namespace tlx {

// ERROR_FILE_TOO_LARGE, for what the runner could not hold: it counts a file's bytes in 31 bits.
inline constexpr platform::Code kFileTooLarge = 223;
inline constexpr std::size_t kLargestFile = 0x7FFFFFFF;

platform::Code ReadWholeFile(cvn::StringView path, std::string* bytes);

// A file that appears under its name complete or not at all: it is written beside that name and
// moved over it by Commit. Without a Commit the name keeps what it had, and nothing stays behind.
class OutputFile {
 public:
  enum class Readers { Anybody, OwnerOnly };

  explicit OutputFile(cvn::StringView path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  cvn::StringView Path() const { return path_; }
  // Called once.
  platform::Code Write(std::string_view bytes, Readers readers);
  platform::Code Commit();

 private:
  cvn::String path_;
  cvn::String temporaryPath_;
  bool hasTemporary_ = false;
};

// Writes and commits one file; on failure tells the user. Returns the exit code.
int WriteWholeFile(cvn::StringView path, std::string_view bytes);

}  // namespace tlx
