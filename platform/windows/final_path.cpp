#include "platform/final_path.h"

#include <algorithm>

#include "platform/windows/wide.h"

namespace platform::paths {
namespace {

// The classic length of a path; a longer one takes a second call.
constexpr DWORD kFirstSize = MAX_PATH;

Code ReadFinalPath(HANDLE object, DWORD form, cvn::String* finalPath) {
  const std::optional<cvn::String> text =
      windows::ReadText<kFirstSize>([&](wchar_t* buffer, DWORD size) {
        return ::GetFinalPathNameByHandleW(object, buffer, size, form);
      });
  if (!text) {
    return ::GetLastError();
  }
  *finalPath = *text;
  return kSuccess;
}

}  // namespace

Code GetFinalPath(cvn::StringView path, cvn::String* finalPath, VolumeName* volume) {
  windows::LastErrorKeeper lastError;
  // FILE_FLAG_BACKUP_SEMANTICS is what opens a folder.
  const HANDLE object =
      ::CreateFileW(windows::Wide(windows::PathForCall(path)), FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  const Code opened = lastError.Outcome(object != INVALID_HANDLE_VALUE);
  if (opened != kSuccess) {
    return opened;
  }
  *volume = VolumeName::Dos;
  Code code = ReadFinalPath(object, VOLUME_NAME_DOS, finalPath);
  if (code == kPathNotFound) {  // the volume has no letter
    *volume = VolumeName::Nt;
    code = ReadFinalPath(object, VOLUME_NAME_NT, finalPath);
  }
  ::CloseHandle(object);
  ::SetLastError(code);
  return lastError.Outcome(code == kSuccess);
}

// What _wcslwr does in the user's locale, without a change of the thread's.
cvn::String FoldForFinalPath(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  std::vector<wchar_t> lower(path.size());
  const int size = static_cast<int>(path.size());
  const int length = ::LCMapStringEx(LOCALE_NAME_USER_DEFAULT, LCMAP_LOWERCASE,
                                     reinterpret_cast<LPCWSTR>(path.data()), size, lower.data(),
                                     size, nullptr, nullptr, 0);
  return length == size ? cvn::String(windows::ViewOf(lower.data(), lower.size()))
                        : cvn::String(path);
}

}  // namespace platform::paths
