// Names of the host's files.
#pragma once

#include <string>
#include <string_view>

#include "platform/error.h"

namespace platform::posix {

// Whether a path is that of `folder`, or of something in it. An empty one is the host's root.
bool IsWithin(std::string_view path, std::string_view folder);

// A name in a folder that its owner holds open: what the host's ...at calls take. The name has no
// slash, or is ".".
struct FileAt {
  int folder;
  const char* name;
};

// A path for those calls that take nothing else. It leads through the descriptor of the folder, and
// to nothing where the host has no /proc.
std::string PathThrough(FileAt file);

// The path of an open object as the host tells it. 0, or the value of errno.
int PathOfOpen(int descriptor, std::string* path);

// Makes a change of names in an open folder last.
Code FlushFolder(int folder);

// Gives a new name, atomically; EEXIST when that is taken. 0, or the value of errno.
int RenameToFree(FileAt from, FileAt to);

// What `path` leads to through all symbolic links of the host. 0, or the value of errno; `*real`
// stays as it was then.
int RealPath(const std::string& path, std::string* real);

}  // namespace platform::posix
