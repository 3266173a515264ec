// The one path of an object to which all its spellings lead.
#pragma once

#include "platform/error.h"
#include "support/string.h"

namespace platform::paths {

// How the volume in a final path is named: by a drive or a share, or as the kernel names it.
enum class VolumeName { Dos, Nt };

// What GetFinalPathNameByHandleW tells of the object at `path`, file or folder, with links
// resolved. It is opened for no more than that, even when it is held. The form is VOLUME_NAME_DOS,
// "\\?\C:\..." or "\\?\UNC\..."; only for a volume without a letter it is VOLUME_NAME_NT,
// "\Device\...". The codes are those of opening, and what GetFinalPathNameByHandleW leaves.
//
// On Linux the path has the spelling of the disk, as "\\?\C:\..." within the machine, else as
// "\\?\Z:\...". 123 for an object whose path can't be said because a name in it has a backslash.
Code GetFinalPath(cvn::StringView path, cvn::String* finalPath, VolumeName* volume);

// `path` as it is to be opened for its final path: in the lower case of the user's locale, which no
// look-up of Windows minds. On Linux it stays as it is: where two names differ in case alone it
// would lead to the other one.
cvn::String FoldForFinalPath(cvn::StringView path);

}  // namespace platform::paths
