// What tlx tells its user, and the exit codes that go with it.
#pragma once

#include <cstddef>

#include "platform/error.h"
#include "support/string.h"

namespace tlx {

inline constexpr int kExitDone = 0;
inline constexpr int kExitBadInput = 1;
inline constexpr int kExitBadUsage = 2;

// A place in a text file, both counted from 1. A column of 0 means the line as a whole.
struct TextPosition {
  std::size_t line;
  std::size_t column;
};

// "file: error: text" on standard error; returns kExitBadInput.
int FailOnFile(cvn::StringView file, cvn::StringView text);
// "file: warning: text" on standard error.
void WarnOfFile(cvn::StringView file, cvn::StringView text);
// "file:line:column: error: text" on standard error; returns kExitBadInput.
int FailAt(cvn::StringView file, TextPosition position, cvn::StringView text);
// "file:line:column: warning: text" on standard error.
void WarnAt(cvn::StringView file, TextPosition position, cvn::StringView text);

// What a platform code means: "there is no such file".
cvn::String DescribeCode(platform::Code code);
// FailOnFile for a file that gave the platform code when it was read or written.
int FailToRead(cvn::StringView file, platform::Code code);
int FailToWrite(cvn::StringView file, platform::Code code);

}  // namespace tlx
