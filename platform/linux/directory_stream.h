// Reading a folder of the host.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

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

}  // namespace platform::posix
