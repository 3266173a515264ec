#include "platform/libraries.h"

#include "platform/paths.h"
#include "platform/windows/wide.h"

namespace platform::libraries {
namespace {

using windows::Wide;

// Windows 7 has it only with an update.
auto* FindSetDefaultDirectories() {
  windows::LastErrorKeeper lastError;
  return windows::FindFunction<BOOL WINAPI(DWORD)>("Kernel32.dll", "SetDefaultDllDirectories");
}

HMODULE ModuleOf(const Library& library) { return static_cast<HMODULE>(library.Handle()); }

// What is searched for must keep its form; only a whole path may get the one without limits.
cvn::PathString PathToLoad(cvn::StringView path) {
  return paths::IsRelative(path) ? cvn::PathString(path) : windows::PathForCall(path);
}

}  // namespace

void Library::Free() {
  windows::LastErrorKeeper lastError;
  if (IsLoaded()) {
    ::FreeLibrary(ModuleOf(*this));
    handle_ = nullptr;
  }
}

void NarrowSearch() {
  constexpr DWORD kSearchDefaultDirs = 0x1000;  // LOAD_LIBRARY_SEARCH_DEFAULT_DIRS
  windows::LastErrorKeeper lastError;
  auto* setDefaultDirectories = FindSetDefaultDirectories();
  if (setDefaultDirectories != nullptr) {
    setDefaultDirectories(kSearchDefaultDirs);
  }
}

bool CanNarrowSearch() { return FindSetDefaultDirectories() != nullptr; }

Code Load(cvn::StringView path, std::uint32_t flags, Library* library) {
  windows::LastErrorKeeper lastError;
  const cvn::PathString text = PathToLoad(path);
  const HMODULE module = flags == kDefaultSearch ? ::LoadLibraryW(Wide(text))
                                                 : ::LoadLibraryExW(Wide(text), nullptr, flags);
  const Code code = lastError.Outcome(module != nullptr);
  *library = Library(module);
  return code;
}

Code FindLoaded(cvn::StringView name, Library* library) {
  windows::LastErrorKeeper lastError;
  HMODULE module = nullptr;
  const BOOL found = ::GetModuleHandleExW(0, Wide(cvn::PathString(name)), &module);
  const Code code = lastError.Outcome(found != FALSE);
  *library = Library(module);
  return code;
}

Address FindSymbol(const Library& library, const char* name) {
  windows::LastErrorKeeper lastError;
  const FARPROC address = ::GetProcAddress(ModuleOf(library), name);
  lastError.Settle(address != nullptr);
  return reinterpret_cast<Address>(address);
}

cvn::String FileNameOf(const void* address) {
  windows::LastErrorKeeper lastError;
  HMODULE module = nullptr;
  const BOOL found = ::GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      static_cast<LPCWSTR>(address), &module);
  if (lastError.Outcome(found != FALSE) != kSuccess) {
    return cvn::String();
  }
  std::optional<cvn::String> name = windows::ReadText<MAX_PATH>(
      [module](wchar_t* buffer, DWORD size) { return ::GetModuleFileNameW(module, buffer, size); });
  lastError.Settle(name.has_value());
  return name ? *std::move(name) : cvn::String();
}

const void* ProgramModule() { return ::GetModuleHandleW(nullptr); }

}  // namespace platform::libraries
