#include <array>
#include <thread>

#include "platform/windows/wide.h"
#include "tests/platform/fixture.h"

namespace platform::test {
namespace {

using windows::PathForCall;
using windows::Wide;

std::string ReadToEnd(HANDLE source) {
  std::string bytes;
  std::array<char, 4096> buffer;
  DWORD count = 0;
  while (::ReadFile(source, buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr) !=
             0 &&
         count != 0) {
    bytes.append(buffer.data(), count);
  }
  return bytes;
}

HANDLE OpenTemporaryFile(DWORD access) {
  std::array<wchar_t, MAX_PATH> folder;
  std::array<wchar_t, MAX_PATH> path;
  ::GetTempPathW(MAX_PATH, folder.data());
  ::GetTempFileNameW(folder.data(), L"cap", 0, path.data());
  return ::CreateFileW(path.data(), access, 0, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

}  // namespace

const std::string_view kStreamLineEnd = "\r\n";

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

void MakeReadOnly(cvn::StringView file) {
  ASSERT_NE(::SetFileAttributesW(Wide(PathForCall(file)), FILE_ATTRIBUTE_READONLY), 0);
}

bool MakeFolderLink(cvn::StringView link, cvn::StringView folder) {
  constexpr DWORD kFlags =
      SYMBOLIC_LINK_FLAG_DIRECTORY | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE;
  ::CreateSymbolicLinkW(Wide(PathForCall(link)), Wide(PathForCall(folder)), kFlags);
  // Wine 8 tells of a success that it does not bring about.
  return ::GetFileAttributesW(Wide(PathForCall(link))) != INVALID_FILE_ATTRIBUTES;
}

bool RunsUnderWine() {
  return windows::FindFunction<const char*()>("ntdll.dll", "wine_get_version") != nullptr;
}

std::optional<bool> IsPrivilegeEnabled(cvn::StringView name) {
  LUID wanted;
  HANDLE token = nullptr;
  alignas(TOKEN_PRIVILEGES) std::array<std::byte, 4096> buffer;
  DWORD size = 0;
  if (::LookupPrivilegeValueW(nullptr, Wide(cvn::PathString(name)), &wanted) == 0 ||
      ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) == 0) {
    return std::nullopt;
  }
  ::GetTokenInformation(token, TokenPrivileges, buffer.data(), static_cast<DWORD>(buffer.size()),
                        &size);
  ::CloseHandle(token);
  const auto* privileges = reinterpret_cast<const TOKEN_PRIVILEGES*>(buffer.data());
  for (const auto& held : std::span(privileges->Privileges, privileges->PrivilegeCount)) {
    if (held.Luid.LowPart == wanted.LowPart && held.Luid.HighPart == wanted.HighPart) {
      return (held.Attributes & SE_PRIVILEGE_ENABLED) != 0;
    }
  }
  return std::nullopt;
}

std::size_t OpenHandles() {
  DWORD count = 0;
  EXPECT_NE(::GetProcessHandleCount(::GetCurrentProcess(), &count), 0);
  return count;
}

std::string Capture(streams::Output stream, Sink sink, const std::function<void()>& action) {
  const DWORD which = stream == streams::Output::Out ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE;
  HANDLE source = nullptr;
  HANDLE target = nullptr;
  std::string bytes;
  std::thread reader;
  if (sink == Sink::Pipe) {
    ::CreatePipe(&source, &target, nullptr, 0);
    reader = std::thread([&] { bytes = ReadToEnd(source); });
  } else if (sink != Sink::Closed) {
    target = OpenTemporaryFile(sink == Sink::File ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ);
  }

  const HANDLE kept = ::GetStdHandle(which);
  ::SetStdHandle(which, target);
  action();
  ::SetStdHandle(which, kept);

  if (sink == Sink::File) {
    ::SetFilePointer(target, 0, nullptr, FILE_BEGIN);
    bytes = ReadToEnd(target);
  }
  if (target != nullptr) {
    ::CloseHandle(target);
  }
  if (reader.joinable()) {
    reader.join();
    ::CloseHandle(source);
  }
  return bytes;
}

}  // namespace platform::test
