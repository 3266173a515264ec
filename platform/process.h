// The running process, and what it may do.
#pragma once

#include <cstdint>
#include <span>

#include "support/string.h"

namespace platform::process {

std::uint32_t CurrentId();

// Enables privileges of the process's token by name ("SeDebugPrivilege"), in order, each by a call
// of its own. One that the token does not hold stays absent; so do all of them on Linux, where the
// account alone decides. Never fails.
void EnablePrivileges(std::span<const cvn::StringView> names);

}  // namespace platform::process
