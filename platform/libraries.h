// Shared libraries of the platform's own kind: DLLs on Windows, ELF shared objects on Linux.
//
// A library that the product looks for by a name, such as "journal.dll" or "runlevelbroker.dll", is
// on Linux a shared object under that very name: nothing is renamed, and a name without an
// extension means ".dll" there too.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/error.h"
#include "support/string.h"

namespace platform::libraries {

// How a library is looked for: LoadLibraryW's own way, or by the flags of LoadLibraryExW. A path
// with a folder is loaded from there in each way; what differs is where the libraries that it needs
// are looked for, and where a bare name is. The last is for whole paths only.
inline constexpr std::uint32_t kDefaultSearch = 0;
inline constexpr std::uint32_t kAlteredSearchPath = 0x8;
inline constexpr std::uint32_t kSearchLibraryFolderAndDefaults = 0x1100;

using Address = void (*)();

// A loaded library. Move-only; gives back its one reference at the end of its life.
class Library {
 public:
  Library() = default;
  explicit Library(void* handle) : handle_(handle) {}
  Library(Library&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Library& operator=(Library&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Library() { Free(); }

  bool IsLoaded() const { return handle_ != nullptr; }
  void Free();
  void* Handle() const { return handle_; }

 private:
  void* handle_ = nullptr;
};

// Limits where the loader looks for libraries to the program's folder, the system folder and
// folders that were added on purpose: SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS),
// where the platform has it. On Linux the loader's own search never has the current directory, and
// libraries are loaded by full path only.
void NarrowSearch();

// Whether the platform has SetDefaultDllDirectories, and so takes kSearchLibraryFolderAndDefaults.
// Always on Linux.
bool CanNarrowSearch();

// Loads a library, as LoadLibraryExW, or as LoadLibraryW when the flags are kDefaultSearch. On
// Linux the path is resolved as any other, a bare name is looked for beside the program, and the
// flags change nothing; what lies on the machine isn't loaded and gives 193, as for process::Start.
// What `library` held is given back. 126 when it, or a library that it
// needs, isn't there; 127 when one of those lacks what it needs of it; 193 when it is no library of
// this platform.
Code Load(cvn::StringView path, std::uint32_t flags, Library* library);

// As GetModuleHandleExW(0, ...): a library that is in the process already, with one more reference,
// by its file name without regard to case, or by a path. 126 when it isn't.
Code FindLoaded(cvn::StringView name, Library* library);

// As GetProcAddress of a loaded library, with the name in UTF-8; null, with 127 as the last error,
// when the library exports no such symbol itself. The address is good while the library is loaded.
Address FindSymbol(const Library& library, const char* name);

// The path of the library, or of the program, that holds an address, as GetModuleFileNameW of it;
// on Linux in the form Z:\... or C:\.... Empty when none does, with 126 as the last error.
cvn::String FileNameOf(const void* address);

// Where the program's own image begins, by which a library can tell who calls: the module handle on
// Windows, the address of the program's header on Linux.
const void* ProgramModule();

}  // namespace platform::libraries
