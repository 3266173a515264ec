// Folders that this account alone can change, for as long as one process uses them.
#pragma once

#include <string>

#include "platform/error.h"
#include "platform/linux/descriptor.h"
#include "support/containers.h"

namespace platform::posix {

// Makes the folder at `path`, a path of the host, and opens it. Other runs are told that this
// process uses it as long as it is open. files::kNotPrivate when others could change it or put
// another in its place, and then nothing is left of it; 183 when there is one.
Code MakeOwnFolder(const std::string& path, Descriptor* folder);

// Makes one with a name of its own in the first of TMPDIR, /var/tmp and /tmp that others can be
// kept out of, and from which programs run; none within the folder `outside`, a path without links.
// files::kNotPrivate when there is none.
Code MakeOwnFolderOnHost(Descriptor* folder, std::string* path, const std::string& outside = {});

// The folders that were made so in `place` and on the host, and whose processes have ended: a
// hundred at most, so that others are left to the next call. They are the caller's to remove, and
// have names of their own by then.
cvn::List<std::string> FindAbandonedFolders(const std::string& place);

}  // namespace platform::posix
