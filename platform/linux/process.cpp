#include "platform/process.h"

#include <unistd.h>

namespace platform::process {

std::uint32_t CurrentId() { return static_cast<std::uint32_t>(getpid()); }

// There are no privileges by name: the account alone decides.
void EnablePrivileges(std::span<const cvn::StringView> /*names*/) {}

}  // namespace platform::process
