// Shared libraries.
#pragma once

namespace platform::libraries {

// Limits where the loader looks for libraries to the program's folder, the system folder and
// folders that were added on purpose: SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS),
// where the platform has it. On Linux the loader's own search never has the current directory, and
// libraries are loaded by full path only.
void NarrowSearch();

}  // namespace platform::libraries
