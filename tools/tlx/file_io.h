// Files that the tool makes.
#pragma once

#include <string_view>

#include "support/string.h"

namespace tlx {

// Writes a file that appears complete or not at all; on failure tells the user. Returns the exit
// code.
int WriteWholeFile(cvn::StringView path, std::string_view bytes);

}  // namespace tlx
