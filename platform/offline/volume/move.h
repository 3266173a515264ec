// Moves that happen now.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

// As files::Move, without the delay. The drives C: and Z: are volumes of their own, even on one
// file system of the host. Leaves the thread's last error alone.
Code MoveNow(cvn::StringView from, cvn::StringView to, std::uint32_t flags);

}  // namespace platform::posix
