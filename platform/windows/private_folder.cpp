#include "platform/private_folder.h"

#include "platform/paths.h"
#include "platform/windows/wide.h"

namespace platform::files {

struct PrivateFolder::State {
  cvn::String path;
  cvn::String madeFolder;  // the last one

  cvn::String PathOf(cvn::StringView name) const {
    cvn::String whole = path;
    whole.Append(u'\\');
    whole.Append(name);
    return whole;
  }
};

bool PrivateFolder::IsRequired() { return false; }

Code PrivateFolder::MakePlace(cvn::StringView place) {
  const Code code = CreateDirectory(place);
  Attributes attributes = 0;
  if (code == kAlreadyExists && GetAttributes(place, &attributes) == kSuccess &&
      (attributes & kReparsePoint) != 0) {
    ::SetLastError(kIsLink);
    return kIsLink;
  }
  return code == kAlreadyExists ? kSuccess : code;
}

Code PrivateFolder::CheckPlace(cvn::StringView place) {
  windows::LastErrorKeeper lastError;
  Attributes attributes = 0;
  return GetAttributes(place, &attributes) == kSuccess && (attributes & kReparsePoint) != 0
             ? kIsLink
             : kSuccess;
}

cvn::List<cvn::String> PrivateFolder::FindAbandoned(cvn::StringView /*place*/) { return {}; }

PrivateFolder::PrivateFolder() = default;
PrivateFolder::PrivateFolder(PrivateFolder&&) noexcept = default;
PrivateFolder& PrivateFolder::operator=(PrivateFolder&&) noexcept = default;
PrivateFolder::~PrivateFolder() = default;

Code PrivateFolder::Make(cvn::StringView place, cvn::StringView name) {
  state_ = std::make_unique<State>();
  state_->path = place;
  paths::AddBackslash(&state_->path);
  state_->path.Append(name);
  const Code code = CreateDirectory(state_->path);
  if (code != kSuccess) {
    state_.reset();
  }
  return code;
}

cvn::String PrivateFolder::PathOnHost() const { return {}; }

Code PrivateFolder::MakeFoldersFor(cvn::StringView name) {
  if (state_ == nullptr) {
    ::SetLastError(kInvalidHandle);
    return kInvalidHandle;
  }
  cvn::String folder = state_->PathOf(name);
  paths::RemoveFileSpec(&folder);
  const Code code = folder == state_->madeFolder ? kSuccess : CreateDirectoryRecursive(folder);
  if (code == kSuccess) {
    state_->madeFolder = folder;
  }
  return code;
}

Code PrivateFolder::Copy(const File& from, cvn::StringView name, File* copy) {
  windows::LastErrorKeeper lastError;
  // Held without sharing for writing or deletion, the file keeps its name.
  const std::optional<cvn::String> source =
      windows::ReadText<MAX_PATH>([&](wchar_t* buffer, DWORD size) {
        return ::GetFinalPathNameByHandleW(reinterpret_cast<HANDLE>(from.Handle()), buffer, size,
                                           VOLUME_NAME_DOS);
      });
  if (state_ == nullptr || !source) {
    ::SetLastError(source ? DWORD{kInvalidHandle} : ::GetLastError());
    return lastError.Outcome(false);
  }
  const cvn::String target = state_->PathOf(name);
  Code code = files::Copy(*source, target, false);
  if (code == kSuccess) {
    code = Open(target, Access::Read, Share::Read, Disposition::OpenExisting, copy);
  }
  ::SetLastError(code);
  return lastError.Outcome(code == kSuccess);
}

}  // namespace platform::files
