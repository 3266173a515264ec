#include "platform/windows/wide.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using windows::PathForCall;
using windows::Wide;

}  // namespace

void PreparePlatform() {}
void CleanPlatform() {}

void RemoveTree(cvn::StringView folder) {
  const cvn::String prefix = Joined(folder, u"\\");
  WIN32_FIND_DATAW entry;
  const HANDLE search = ::FindFirstFileW(Wide(PathForCall(Joined(prefix, u"*"))), &entry);
  for (bool found = search != INVALID_HANDLE_VALUE; found;
       found = ::FindNextFileW(search, &entry) != 0) {
    const cvn::StringView name =
        windows::ViewOf(entry.cFileName, static_cast<std::size_t>(::lstrlenW(entry.cFileName)));
    const cvn::String path = Joined(prefix, name);
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      ::SetFileAttributesW(Wide(PathForCall(path)), FILE_ATTRIBUTE_NORMAL);
      ::DeleteFileW(Wide(PathForCall(path)));
    } else if (name != u"." && name != u"..") {
      RemoveTree(path);
    }
  }
  ::FindClose(search);
  ::RemoveDirectoryW(Wide(PathForCall(folder)));
}

bool MakeFolderLink(cvn::StringView link, cvn::StringView folder) {
  constexpr DWORD kFlags =
      SYMBOLIC_LINK_FLAG_DIRECTORY | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE;
  ::CreateSymbolicLinkW(Wide(PathForCall(link)), Wide(PathForCall(folder)), kFlags);
  // Wine 8 tells of a success that it does not bring about.
  return ::GetFileAttributesW(Wide(PathForCall(link))) != INVALID_FILE_ATTRIBUTES;
}

bool MakeOtherName(cvn::StringView file, cvn::StringView name) {
  return ::CreateHardLinkW(Wide(PathForCall(name)), Wide(PathForCall(file)), nullptr) != 0;
}

bool RunsUnderWine() {
  return windows::FindFunction<const char*()>("ntdll.dll", "wine_get_version") != nullptr;
}

std::size_t OpenHandles() {
  DWORD count = 0;
  EXPECT_NE(::GetProcessHandleCount(::GetCurrentProcess(), &count), 0);
  return count;
}

}  // namespace platform::test
