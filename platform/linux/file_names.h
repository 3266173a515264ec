// Names of the host's files.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"

namespace platform::posix {

// Whether a path is that of `folder`, or of something in it. An empty one is the host's root.
bool IsWithin(std::string_view path, std::string_view folder);

// The folder that `path` lies in, with its slash.
std::string FolderOf(const std::string& path);

// Makes a change of names in a folder last.
Code FlushFolder(const std::string& folder);

// Gives a new name, atomically; EEXIST when that is taken. 0, or the value of errno.
int RenameToFree(const std::string& from, const std::string& to);

// What `path` leads to through all symbolic links. 0, or the value of errno; `*real` stays as it
// was then.
int RealPath(const std::string& path, std::string* real);

}  // namespace platform::posix
