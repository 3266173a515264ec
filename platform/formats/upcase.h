// The table by which Windows compares the names of keys, values and files.
#pragma once

namespace platform::posix {

// The upper-case form of a UTF-16 unit; the unit itself where Windows knows no other case.
char16_t UpperCase(char16_t unit);

}  // namespace platform::posix
