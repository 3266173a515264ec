// What of a file's extended attributes belongs to its state.
#pragma once

#include <string_view>

namespace platform::posix {

// False for what holds the attributes of Windows, what an overlay or the host's security modules
// keep for themselves, and other views of what stands elsewhere.
bool IsOfState(std::string_view extendedAttribute);

}  // namespace platform::posix
