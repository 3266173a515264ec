#include "platform/held_folder.h"

#include "platform/file_search.h"
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

Code HeldFolder::ForEach(const std::function<bool(Entry)>& take) const {
  if (state_ == nullptr) {
    ::SetLastError(kInvalidHandle);
    return kInvalidHandle;
  }
  cvn::String pattern = state_->path;
  pattern.Append(u'*');
  Search search;
  SearchEntry entry;
  Code code = search.First(pattern, &entry);
  for (; code == kSuccess; code = search.Next(&entry)) {
    if (!entry.IsSelfOrParent() &&
        !take({entry.Name(), entry.IsDirectory() && !entry.IsLink(), entry.IsLink()})) {
      return kSuccess;
    }
  }
  return code == kNoMoreFiles || code == kFileNotFound ? Code(kSuccess) : code;
}

Code HeldFolder::LookAt(Look* look) const {
  windows::LastErrorKeeper lastError;
  *look = {};
  BY_HANDLE_FILE_INFORMATION information{};
  if (state_ == nullptr || !state_->folder.IsOpen() ||
      ::GetFileInformationByHandle(reinterpret_cast<HANDLE>(state_->folder.Handle()),
                                   &information) == 0) {
    return state_ == nullptr ? Code(kInvalidHandle) : GetIdentity(state_->path, &look->identity);
  }
  look->changed = std::uint64_t{information.ftLastWriteTime.dwHighDateTime} << 32 |
                  information.ftLastWriteTime.dwLowDateTime;
  return GetIdentity(state_->folder, &look->identity);
}

Code HeldFolder::OpenEntry(cvn::StringView name, File* file) const {
  if (state_ == nullptr) {
    ::SetLastError(kInvalidHandle);
    return kInvalidHandle;
  }
  cvn::String path = state_->path;
  path.Append(name);
  return OpenRegular(path, file);
}

Code HeldFolder::OpenFile(cvn::StringView name, File* file) { return OpenEntry(name, file); }

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
