// From the paths of scripts to those of the host, and back.
//
// C: is the machine's folder and Z: the host's root; there is no other drive. '/' separates as '\'
// does. What has no drive starts at the current directory, or at the root of the drive that this
// lies on. "." and ".." are cut out as text, as on Windows, and cannot leave the drive.
//
// C: holds names to what Windows allows, and cuts the dots and blanks at the end that Windows cuts.
// Names on Z: are the host's, and stay as they are; one with a backslash in it can't be said.
//
// Names are found without regard to case: first the name as it is, then among all those that fold
// to the same (the first in the order of their bytes).
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

struct HostPath {
  std::string path;              // where the entry is, or where it would be made
  std::string name;              // its name as the caller spelled it
  bool endsInSeparator = false;  // the caller asked for a folder
  bool onMachine = false;        // on drive C:, whose names are held to what Windows allows
  bool isRoot = false;           // the root of a drive
  struct stat entry =
      {};  // of the entry itself and not of what it links to; zero when there is none

  bool IsFolder() const;  // links are followed
};

// Finds the host's path of `path`. 2 when only the last name is missing: `host->path` then tells
// where it would be. 3 when a folder on the way is missing or is none (`host->path` is then what it
// would be if that were a folder), when there is no such drive, and for an empty path (`host->path`
// is empty then); 53 for a path with a server; 123 for a name that Windows refuses, and for a file
// with a separator after its name; 206 when the host's path is longer than the host takes, which
// is 4095 bytes. Leaves the thread's last error alone.
Code Resolve(cvn::StringView path, HostPath* host);

// The form for scripts of an absolute path of the host: C:\... within the machine, else Z:\....
cvn::String ToMachinePath(std::string_view hostPath);

// The current directory as the host names it; empty when it was removed.
std::string HostCurrentDirectory();

bool IsSeparator(char16_t character);

// Length of what a path begins with and no cutting may remove: "C:\", "C:", "\\?\C:\", "\\" or "\".
std::size_t RootLength(cvn::StringView path);

}  // namespace platform::posix
