#include "platform/libraries.h"

#include "platform/windows/wide.h"

namespace platform::libraries {

void NarrowSearch() {
  constexpr DWORD kSearchDefaultDirs = 0x1000;  // LOAD_LIBRARY_SEARCH_DEFAULT_DIRS
  windows::LastErrorKeeper lastError;
  // Windows 7 has it only with an update.
  auto* setDefaultDirectories =
      windows::FindFunction<BOOL WINAPI(DWORD)>("Kernel32.dll", "SetDefaultDllDirectories");
  if (setDefaultDirectories != nullptr) {
    setDefaultDirectories(kSearchDefaultDirs);
  }
}

}  // namespace platform::libraries
