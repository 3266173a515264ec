// The attributes that Windows gives to files, as the host keeps them.
//
// Where the volume is NTFS they stand in system.ntfs_attrib_be. Elsewhere READONLY is a missing
// write permission of the owner, and HIDDEN, SYSTEM and ARCHIVE stand in user.DOSATTRIB, as the
// text "0x22", or in the binary forms of Samba, which are read only. A file without that has
// ARCHIVE alone, as every new file of Windows, and a folder has none; so what is made or copied
// seldom needs it.
//
// A symbolic link is a reparse point, has DIRECTORY when it leads to a folder, and cannot have any
// attribute stored.
#pragma once

#include <sys/stat.h>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/file_names.h"

namespace platform::posix {

// The attribute word of what has this name; `entry` is its own status, and `isFolder` is true for a
// folder and for a link to one. Never 0: NORMAL stands for none. When what is stored can't be read,
// the word is still filled in, with what a new file has. 5 for a file that may not be read.
Code ReadAttributes(FileAt file, const struct stat& entry, bool isFolder,
                    files::Attributes* attributes);

// The same of an open file.
Code ReadAttributes(int descriptor, const struct stat& entry, files::Attributes* attributes);

// Sets READONLY, HIDDEN, SYSTEM and ARCHIVE to what `wanted` says. 50 when the file system has no
// place for them and something would change.
Code StoreAttributes(FileAt file, const struct stat& entry, files::Attributes wanted);

// The same of an open file.
Code StoreAttributes(int descriptor, const struct stat& entry, files::Attributes wanted);

// Takes all of them from an open folder that is new: ntfs-3g gives it ARCHIVE, and Windows nothing.
Code ClearAttributes(int folder);

}  // namespace platform::posix
