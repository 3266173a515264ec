// Where an open file lies, whatever paths and mounts lead there.
#pragma once

#include <string>

namespace platform::posix {

struct FilePlace {
  std::string path;        // the host's, without links
  std::string fileSystem;  // its device number, as "8:1"
  std::string inside;      // the path within the file system, which is the same through each mount
};

// The place of what is open. False when the host doesn't tell, as of a file that was removed or
// that lies on no mount of this process.
bool PlaceOf(int descriptor, FilePlace* place);

// Whether `place` is `folder`, or lies below it.
bool IsSameOrBelow(const FilePlace& place, const FilePlace& folder);

}  // namespace platform::posix
