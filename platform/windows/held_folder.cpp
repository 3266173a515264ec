#include "platform/held_folder.h"

#include "platform/paths.h"
#include "platform/windows/wide.h"

namespace platform::files {

// The handle keeps the folder's name from being given to another one.
struct HeldFolder::State {
  File folder;
  cvn::String path;
};

HeldFolder::HeldFolder() = default;
HeldFolder::HeldFolder(HeldFolder&&) noexcept = default;
HeldFolder& HeldFolder::operator=(HeldFolder&&) noexcept = default;
HeldFolder::~HeldFolder() = default;

Code HeldFolder::Hold(cvn::StringView path) {
  windows::LastErrorKeeper lastError;
  // FILE_FLAG_BACKUP_SEMANTICS is what opens a folder.
  const HANDLE handle = ::CreateFileW(windows::Wide(windows::PathForCall(path)),
                                      FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE && ::GetLastError() != kAccessDenied) {
    return lastError.Outcome(false);
  }
  state_ = std::make_unique<State>();
  if (handle != INVALID_HANDLE_VALUE) {
    state_->folder = File(reinterpret_cast<std::intptr_t>(handle));
  }
  state_->path = path;
  paths::AddBackslash(&state_->path);
  return kSuccess;
}

Code HeldFolder::OpenFile(cvn::StringView name, File* file) {
  if (state_ == nullptr) {
    ::SetLastError(kInvalidHandle);
    return kInvalidHandle;
  }
  cvn::String path = state_->path;
  path.Append(name);
  return OpenRegular(path, file);
}

Code OpenRegular(cvn::StringView path, File* file) {
  File opened;
  const Code code = Open(path, Access::Read, Share::Read, Disposition::OpenExisting, &opened);
  if (code != kSuccess) {
    return code;
  }
  // "NUL" and its like are files in every folder.
  if (::GetFileType(reinterpret_cast<HANDLE>(opened.Handle())) != FILE_TYPE_DISK) {
    ::SetLastError(kNoRegularFile);
    return kNoRegularFile;
  }
  *file = std::move(opened);
  return kSuccess;
}

}  // namespace platform::files
