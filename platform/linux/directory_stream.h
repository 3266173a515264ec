// Reading a folder of the host.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

#include "platform/linux/file_names.h"

namespace platform::posix {

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// Opens a folder for reading its names; null with errno on failure. `flags` go to openat beside
// what a folder needs.
inline DirectoryStream OpenDirectory(FileAt folder, int flags) {
  const int descriptor =
      openat(folder.folder, folder.name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags);
  DirectoryStream stream(descriptor < 0 ? nullptr : fdopendir(descriptor));
  if (stream == nullptr && descriptor >= 0) {
    close(descriptor);
  }
  return stream;
}

// Hands each entry that is left of a folder to `take`, but "." and "..", until it gives false. 0,
// or the errno of the reading that failed: then the folder may have more entries.
template <typename Take>
[[nodiscard]] int ForEachEntry(const DirectoryStream& stream, Take take) {
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) {
      return errno;
    }
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && !take(*entry)) {
      return 0;
    }
  }
}

// The same of a folder that is opened for it, with OpenDirectory's flags and failures.
template <typename Take>
[[nodiscard]] int ForEachEntry(FileAt folder, int flags, Take take) {
  const DirectoryStream stream = OpenDirectory(folder, flags);
  return stream == nullptr ? errno : ForEachEntry(stream, take);
}

}  // namespace platform::posix
