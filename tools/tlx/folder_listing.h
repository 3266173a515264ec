// The folder of a patch, as its catalog lists it.
#pragma once

#include <vector>

#include "support/string.h"
#include "tools/tlx/trust_list.h"

namespace tlx {

// The catalog's name in the folder.
inline constexpr cvn::StringView kCatalogName = u"patch.cat";

// Lists and digests every file below `folder` but its catalog, in the order of their names. Tells
// the user of each that no run would take: a link, what is no regular file, a name that Windows
// can't have, two names that are one to Windows, a broken program. With `isForced` there is only a
// warning of names. Returns the exit code.
int ListPatchFolder(cvn::StringView folder, bool isForced, std::vector<ListedFile>* files);

}  // namespace tlx
