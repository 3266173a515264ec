// Files that the tool makes.
#pragma once

#include <string_view>

#include "support/string.h"

namespace tlx {

// Writes a file that appears complete or not at all; on failure tells the user. Returns the exit
// code.
int WriteWholeFile(cvn::StringView path, std::string_view bytes);

// Writes a text in UTF-8, which ends with a line feed, to a file as above, or to standard output
// when the path is empty. Returns the exit code.
int WriteText(cvn::StringView path, std::string_view text);

}  // namespace tlx
