// Steps that several operations on files have in common.
#pragma once

#include <string>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/posix/path_resolver.h"

namespace platform::posix {

// A failure becomes the thread's last error; success leaves that alone.
Code Report(Code code);

// Where the file to open is, or is to be made.
Code LocateFile(cvn::StringView path, files::Disposition disposition, HostPath* host);

// 32 when the file is open. Nobody who has a file open lets others delete or rename it: there is no
// share mode for that here.
Code CheckUnused(const HostPath& host);

// The folder that `path` lies in, with its slash.
std::string FolderOf(const std::string& path);

// Makes a change of names in a folder last.
Code FlushFolder(const std::string& folder);

// Gives a new name, atomically; EEXIST when that is taken. 0, or the value of errno.
int RenameToFree(const std::string& from, const std::string& to);

}  // namespace platform::posix
