// A folder of the host in the place of one of the machine.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::posix {

// Lets `hostFolder` stand in for the machine's folder `place`, in this process and until the next
// call; both are paths of the host. What the machine itself has at `place` is out of reach then.
void SetStandIn(std::string place, std::string hostFolder);

// Where `path`, below the machine's root, leads when it goes to `place` or below it, whatever the
// case of its names: into the stand-in. Nothing for any other path.
std::optional<std::string> ThroughStandIn(std::string_view path);

// The other way round: the path at or below `place` for one in the stand-in, and nothing for any
// other.
std::optional<std::string> BackFromStandIn(std::string_view path);

}  // namespace platform::posix
