#include "platform/paths.h"

#include "platform/windows/wide.h"
// After <windows.h>, which they need.
#include <shlobj.h>
#include <shlwapi.h>

namespace platform::paths {
namespace {

using windows::PathForCall;
using windows::ReadText;
using windows::ViewOf;
using windows::Wide;

// The text calls of the shell take up to MAX_PATH characters, with the closing zero. What is longer
// goes by the same rules here; its last component can't be its root too.
bool IsForShell(cvn::StringView path) { return path.size() < MAX_PATH; }

bool IsSeparator(char16_t character) { return character == u'\\' || character == u'/'; }

std::size_t LongRemoveFileSpec(cvn::StringView path) {
  std::size_t separator = path.rfind(u'\\');
  if (separator == cvn::StringView::npos) {
    return 0;
  }
  if (separator != 0 && path[separator - 1] == u'\\') {
    --separator;
  }
  const bool isRoot = separator == 0 || path[separator - 1] == u':';
  return isRoot ? separator + 1 : separator;
}

std::size_t LongFindFileName(cvn::StringView path) {
  for (std::size_t start = path.size() - 1; start != 0; --start) {
    const char16_t before = path[start - 1];
    if ((IsSeparator(before) || before == u':') && !IsSeparator(path[start])) {
      return start;
    }
  }
  return 0;
}

std::size_t LongFindExtension(cvn::StringView path) {
  const std::size_t last = path.find_last_of(u".\\ ");
  return last == cvn::StringView::npos || path[last] != u'.' ? path.size() : last;
}

// The position in `path` that a call of the shell points to.
template <typename Call>
std::size_t AskShell(cvn::StringView path, Call call) {
  const cvn::PathString text(path);
  return static_cast<std::size_t>(call(Wide(text)) - Wide(text));
}

}  // namespace

bool Exists(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  const cvn::PathString text = PathForCall(path);
  const bool exists = IsForShell(text)
                          ? ::PathFileExistsW(Wide(text)) != 0
                          : ::GetFileAttributesW(Wide(text)) != INVALID_FILE_ATTRIBUTES;
  lastError.Settle(exists);
  return exists;
}

bool IsDirectory(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  const cvn::PathString text = PathForCall(path);
  bool isDirectory = false;
  if (IsForShell(text)) {
    isDirectory = ::PathIsDirectoryW(Wide(text)) != FALSE;
  } else {
    const DWORD attributes = ::GetFileAttributesW(Wide(text));
    isDirectory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  // Of a file this is false without an error.
  lastError.Settle(isDirectory);
  return isDirectory;
}

bool IsSameRoot(cvn::StringView left, cvn::StringView right) {
  const cvn::PathString start(left.substr(0, MAX_PATH - 1));
  return ::PathIsSameRootW(Wide(start), Wide(cvn::PathString(right.substr(0, MAX_PATH - 1)))) !=
         FALSE;
}

void RemoveBackslash(cvn::String* path) {
  if (IsForShell(*path)) {
    std::array<wchar_t, MAX_PATH> buffer;
    ::lstrcpynW(buffer.data(), Wide(cvn::PathString(*path)), MAX_PATH);
    ::PathRemoveBackslashW(buffer.data());
    path->Truncate(static_cast<std::size_t>(::lstrlenW(buffer.data())));
  } else if (path->AsView().back() == u'\\') {
    path->Truncate(path->Length() - 1);
  }
}

bool RemoveFileSpec(cvn::String* path) {
  const std::size_t before = path->Length();
  if (IsForShell(*path)) {
    std::array<wchar_t, MAX_PATH> buffer;
    ::lstrcpynW(buffer.data(), Wide(cvn::PathString(*path)), MAX_PATH);
    ::PathRemoveFileSpecW(buffer.data());
    path->Truncate(static_cast<std::size_t>(::lstrlenW(buffer.data())));
  } else {
    path->Truncate(LongRemoveFileSpec(*path));
  }
  return path->Length() < before;
}

void AddBackslash(cvn::String* path) {
  // PathAddBackslashW refuses what wouldn't fit in MAX_PATH characters; this is all that it does
  // otherwise.
  if (!path->Empty() && (*path)[path->Length() - 1] != u'\\') {
    path->Append(u'\\');
  }
}

cvn::StringView FindFileName(cvn::StringView path) {
  return path.substr(IsForShell(path) ? AskShell(path, ::PathFindFileNameW)
                                      : LongFindFileName(path));
}

cvn::StringView FindExtension(cvn::StringView path) {
  return path.substr(IsForShell(path) ? AskShell(path, ::PathFindExtensionW)
                                      : LongFindExtension(path));
}

bool IsRelative(cvn::StringView path) {
  // The first two characters decide, so that the length doesn't matter.
  return ::PathIsRelativeW(Wide(cvn::PathString(path.substr(0, MAX_PATH - 1)))) != 0;
}

cvn::String LongName(cvn::StringView path) {
  const cvn::PathString text = PathForCall(path);
  const std::optional<cvn::String> name = ReadText<1024>(
      [&](wchar_t* buffer, DWORD size) { return ::GetLongPathNameW(Wide(text), buffer, size); });
  if (!name) {
    return cvn::String();
  }
  return text == path ? *name : windows::WithoutLongPrefix(*name);
}

cvn::String ModuleFileName() {
  std::optional<cvn::String> name = ReadText<MAX_PATH>(
      [](wchar_t* buffer, DWORD size) { return ::GetModuleFileNameW(nullptr, buffer, size); });
  return name ? *std::move(name) : cvn::String();
}

cvn::String SystemDirectory() {
  std::optional<cvn::String> path = ReadText<MAX_PATH>(::GetSystemDirectoryW);
  return path ? *std::move(path) : cvn::String();
}

cvn::String OfCaller(cvn::StringView path) { return path; }

cvn::String CurrentDirectory() {
  std::optional<cvn::String> path = ReadText<MAX_PATH>(
      [](wchar_t* buffer, DWORD size) { return ::GetCurrentDirectoryW(size, buffer); });
  return path ? *std::move(path) : cvn::String();
}

cvn::String CommonApplicationData() {
  windows::LastErrorKeeper lastError;
  std::array<wchar_t, MAX_PATH> buffer;
  if (FAILED(::SHGetFolderPathW(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT,
                                buffer.data()))) {
    return cvn::String();
  }
  return ViewOf(buffer.data(), static_cast<std::size_t>(::lstrlenW(buffer.data())));
}

}  // namespace platform::paths
