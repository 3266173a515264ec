// Private profiles: INI files.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/error.h"
#include "support/string.h"

namespace platform::profile {

// Reads a value, as GetPrivateProfileStringW with a buffer of `capacity` characters (the terminator
// included, so that one less is the longest result): `fallback` when file, section or key is
// missing. Blanks around a value and one pair of quotes around it don't count. A path without a
// folder means a file in the Windows folder. A file that doesn't begin with the mark of UTF-16LE is
// in the system's ANSI code page; on Linux in the machine's, by the value ACP of
// SYSTEM\CurrentControlSet\Control\Nls\CodePage, and in 1252 where that is missing or none. What
// IniFileMapping maps is in the registry; on Linux by the machine's own mappings, of which only
// those to text are read.
cvn::String ReadString(cvn::StringView section, cvn::StringView key, cvn::StringView fallback,
                       std::size_t capacity, cvn::StringView path);

// Writes a value, as WritePrivateProfileStringW: replaces it, or adds key and section where they
// are missing, and keeps everything else as it stands, in the encoding that the file has; a missing
// file is made. 3 when its folder is missing, 5 when it can't be written. On Linux the new file
// takes the place of the old one in one step.
Code WriteString(cvn::StringView section, cvn::StringView key, cvn::StringView value,
                 cvn::StringView path);

// The text of bytes in the code page that such files have.
cvn::String DecodeAnsi(std::string_view bytes);

}  // namespace platform::profile
