// The extended attributes of open files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/error.h"

namespace platform::posix {

// The names of all that the volume lists; none where it has no such attributes. 1920 when they are
// more than 64 KiB.
Code ListExtended(int file, std::vector<std::string>* names);

// Reads one; `*isThere` tells whether the file has it. 1920 for one of more than 64 KiB, which the
// kernel doesn't hand over: ntfs-3g has streams of any size.
Code ReadExtended(int file, const char* name, std::vector<std::byte>* value, bool* isThere);

}  // namespace platform::posix
