// Reading a folder of the host.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

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

// Hands each entry that is left of a folder to `take`, "." and ".." among them, until it gives
// false. 0, or the errno of the reading that failed.
template <typename Take>
int ForEachEntry(const DirectoryStream& stream, Take take) {
  for (;;) {
    errno = 0;
    const dirent* entry = readdir(stream.get());
    if (entry == nullptr) {
      return errno;
    }
    if (!take(*entry)) {
      return 0;
    }
  }
}

}  // namespace platform::posix
