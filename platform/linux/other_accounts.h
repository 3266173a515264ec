// What accounts other than this process's own and root can do.
#pragma once

#include <sys/stat.h>

#include <string>

namespace platform::posix {

// Whether they can write to the file or folder with this status. A group that has nobody in it but
// the owner, as many systems make one for each account, counts as the owner. (Where there is an
// access control list, the group's bits of the mode limit all that it grants.)
bool CanOthersWrite(const struct stat& entry);

// Whether they can make the absolute `path` lead elsewhere, now or later: by renaming or replacing
// a folder or a link on the way, or by making what is missing there.
bool CanOthersRedirect(const std::string& path);

}  // namespace platform::posix
