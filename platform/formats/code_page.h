// The ANSI code page of INI files: windows-1252, also where the machine's own is another. Each byte
// is one code unit, and a byte without a character stands for the control character of its number,
// as on Windows.
#pragma once

#include <string>
#include <string_view>

#include "support/string.h"

namespace platform::posix {

std::u16string DecodeAnsi(std::string_view bytes);

// A character that the code page lacks becomes the one that Windows takes as its best fit ('l' for
// U+0142), else '?'.
std::string EncodeAnsi(cvn::StringView text);

}  // namespace platform::posix
