// The form of a Windows path, as text.
#pragma once

#include <cstddef>

#include "support/string.h"

namespace platform::posix {

// '/' separates as '\' does.
bool IsSeparator(char16_t character);

// True for "C:" and all that begins with it.
bool HasDrive(cvn::StringView path);

// True for "\\?\" and its older spelling "\??\": what follows is taken literally.
bool IsLiteral(cvn::StringView path);

// True for "\\.\" and "//?/": what follows is a device, such as a drive.
bool IsDevice(cvn::StringView path);

// Length of what a path begins with and no cutting may remove: "C:\", "C:", "\\?\C:\", "\\" or "\".
std::size_t RootLength(cvn::StringView path);

}  // namespace platform::posix
