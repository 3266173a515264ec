// The host's path of a script's path as far as text alone can tell: drives, the current directory,
// "." and "..", and the names that Windows takes. Nothing on the disk is looked at.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"
#include "platform/formats/device_names.h"
#include "platform/linux/file_names.h"
#include "support/string.h"

namespace platform::posix {

// A host path under construction. Nothing of its first `root` bytes, the drive's own, is ever cut.
struct PathDraft {
  std::string path;
  std::size_t root = 0;
  bool onMachine = false;
  // Where this isn't None, the path ends in a device's name, and the draft is of the folder.
  Device device = Device::None;
};

// Of a path that is not empty. The codes are those of Resolve.
Code DraftPath(cvn::StringView path, PathDraft* draft);

// A draft of the current directory. kPathNotFound when it was removed.
Code StartAtCurrentDirectory(PathDraft* draft);

// Whether a path of the host, relative to a folder on the machine, climbs above the machine's own.
bool LeadsOut(cvn::StringView path, const PathDraft& folder);

// The current directory as the host names it; empty when it was removed.
std::string HostCurrentDirectory();

}  // namespace platform::posix
