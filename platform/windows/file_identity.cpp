#include "platform/file_identity.h"

#include "platform/windows/wide.h"

namespace platform::files {

Code GetIdentity(cvn::StringView path, Identity* identity) {
  windows::LastErrorKeeper lastError;
  // FILE_FLAG_BACKUP_SEMANTICS is what opens a folder.
  const HANDLE handle =
      ::CreateFileW(windows::Wide(windows::PathForCall(path)), FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  Code code = lastError.Outcome(handle != INVALID_HANDLE_VALUE);
  if (code != kSuccess) {
    return code;
  }
  BY_HANDLE_FILE_INFORMATION information{};
  code = lastError.Outcome(::GetFileInformationByHandle(handle, &information) != 0);
  identity->volume = information.dwVolumeSerialNumber;
  identity->number = std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow;
  ::CloseHandle(handle);
  return code;
}

}  // namespace platform::files
