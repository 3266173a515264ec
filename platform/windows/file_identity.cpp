#include "platform/file_identity.h"

#include "platform/windows/wide.h"

namespace platform::files {
namespace {

Code IdentityOf(HANDLE handle, Identity* identity) {
  windows::LastErrorKeeper lastError;
  BY_HANDLE_FILE_INFORMATION information{};
  const Code code = lastError.Outcome(::GetFileInformationByHandle(handle, &information) != 0);
  identity->volume = information.dwVolumeSerialNumber;
  identity->number = std::uint64_t{information.nFileIndexHigh} << 32 | information.nFileIndexLow;
  return code;
}

}  // namespace

Code GetIdentity(cvn::StringView path, Identity* identity) {
  windows::LastErrorKeeper lastError;
  // FILE_FLAG_BACKUP_SEMANTICS is what opens a folder.
  const HANDLE handle =
      ::CreateFileW(windows::Wide(windows::PathForCall(path)), FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return lastError.Outcome(false);
  }
  const Code code = IdentityOf(handle, identity);
  lastError.Settle(code == kSuccess);
  ::CloseHandle(handle);
  return code;
}

Code GetIdentity(const File& file, Identity* identity) {
  return IdentityOf(reinterpret_cast<HANDLE>(file.Handle()), identity);
}

}  // namespace platform::files
