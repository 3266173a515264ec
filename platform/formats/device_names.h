// The names that MS-DOS gave to devices and that Windows finds in every folder.
#pragma once

#include <cstdint>

#include "support/string.h"

namespace platform::posix {

// Null swallows what is written to it and reads empty. The others are the console, ports and
// printers.
enum class Device : unsigned char { None, Null, Other };

// The part of a path that may be a device's name: of the last name, what comes before the first dot
// or colon, without the blanks at its end. Empty behind a separator.
cvn::StringView DeviceNameIn(cvn::StringView path);

// Which device `path` leads to on a Windows before 11, by that part, in any folder. COM and LPT
// take the digits 1 to 9, and those in superscript that Latin-1 has. For paths without a prefix
// such as "\\?\", in which there are no devices.
//
// Documented by Microsoft in "Naming Files, Paths, and Namespaces"; what follows the name, by what
// RtlIsDosDeviceName_U does.
Device DeviceOf(cvn::StringView path);

// The same since Windows 11, build 22000: NUL is left in every folder, and the others where they
// are the whole path; neither with an extension.
Device DeviceSinceWindows11(cvn::StringView path);

inline constexpr std::uint32_t kBuildOfWindows11 = 22000;

}  // namespace platform::posix
