// Paths as text: names put together, and the folders that count as a path's own.
#pragma once

#include "support/string.h"

namespace tessel {

// A folder's path and a name in it, with one separator between them; an empty name gives the
// folder's path as it is.
cvn::String JoinPath(cvn::StringView directory, cvn::StringView name);
// The same in place.
void AppendName(cvn::String* path, cvn::StringView name);

// The program's folder, with a separator at its end.
cvn::String GetExeFolder();

// The folder of a file, with a separator at its end. A relative path counts from the program's
// folder.
cvn::String GetParentFolder(cvn::StringView path);

}  // namespace tessel
