#include "platform/process.h"
#include "platform/windows/wide.h"
// Needs what <windows.h> declares.
#include <tlhelp32.h>

#include <cwchar>

namespace platform::process {
namespace {

using windows::LastErrorKeeper;

cvn::StringView ViewOf(const wchar_t* text) { return windows::ViewOf(text, std::wcslen(text)); }

}  // namespace

Code List(cvn::List<Entry>* entries, ListStep* failedStep) {
  LastErrorKeeper lastError;
  entries->clear();
  *failedStep = ListStep::Snapshot;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) {
    return lastError.Outcome(false);
  }
  *failedStep = ListStep::First;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  BOOL isThere = ::Process32FirstW(snapshot, &entry);
  const Code code = lastError.Outcome(isThere != 0 || ::GetLastError() == ERROR_NO_MORE_FILES);
  for (; isThere != 0; isThere = ::Process32NextW(snapshot, &entry)) {
    entries->push_back({entry.th32ProcessID, entry.th32ParentProcessID, ViewOf(entry.szExeFile)});
  }
  ::CloseHandle(snapshot);
  return code;
}

Code MainModulePath(std::uint32_t id, cvn::String* path) {
  LastErrorKeeper lastError;
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, id);
  if (snapshot == INVALID_HANDLE_VALUE) {
    return lastError.Outcome(false);
  }
  MODULEENTRY32W module{};
  module.dwSize = sizeof(module);
  const Code code = lastError.Outcome(::Module32FirstW(snapshot, &module) != 0);
  if (code == kSuccess) {
    *path = ViewOf(module.szExePath);
  }
  ::CloseHandle(snapshot);
  return code;
}

Code ImagePath(std::uint32_t id, cvn::String* path, ImageStep* failedStep) {
  LastErrorKeeper lastError;
  const HANDLE process = ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id);
  *failedStep = ImageStep::Open;
  if (process == nullptr) {
    return lastError.Outcome(false);
  }
  *failedStep = ImageStep::Query;
  const auto image = windows::ReadText<1024>([process](wchar_t* buffer, DWORD size) -> DWORD {
    DWORD length = size;
    if (::QueryFullProcessImageNameW(process, 0, buffer, &length) != 0) {
      return length;
    }
    return ::GetLastError() == ERROR_INSUFFICIENT_BUFFER ? size : 0;
  });
  const Code code = lastError.Outcome(image.has_value());
  ::CloseHandle(process);
  if (image) {
    *path = *image;
  }
  return code;
}

}  // namespace platform::process
