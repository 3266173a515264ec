// The environment variables that every Windows sets.
#pragma once

#include <span>

#include "support/string.h"

namespace platform {

// As Windows 10 and 11 set them for all accounts and for the one that is logged on, in the order of
// their names; PATH is not among them, for Tessel sets its own.
std::span<const cvn::StringView> WindowsEnvironmentNames();

// Whether one has that name, in any case.
bool IsWindowsEnvironmentName(cvn::StringView name);

}  // namespace platform
