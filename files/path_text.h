// Composing paths, and the folders that relative names count from.
#pragma once

#include "support/string.h"

namespace tessel {

// A folder's path and a name in it, with one separator between them. An empty name gives the
// folder's path unchanged.
cvn::String JoinPath(cvn::StringView directory, cvn::StringView name);
// The same in place.
void AppendName(cvn::String* path, cvn::StringView name);

// The program's folder, with a separator at its end.
cvn::String GetExeFolder();

// The folder of a file, with a separator at its end. A relative path is relative to the program's
// folder.
cvn::String GetParentFolder(cvn::StringView path);

}  // namespace tessel
