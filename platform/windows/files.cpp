#include "platform/files.h"

#include <algorithm>

#include "platform/windows/wide.h"

namespace platform::files {
namespace {

using windows::LastErrorKeeper;
using windows::PathForCall;
using windows::Wide;

HANDLE HandleOf(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

DWORD AccessOf(Access access) {
  switch (access) {
    case Access::Read:
      return GENERIC_READ;
    case Access::Write:
      return GENERIC_WRITE;
    case Access::ReadWrite:
      return GENERIC_READ | GENERIC_WRITE;
    case Access::All:
      break;
  }
  return GENERIC_ALL;
}

DWORD ShareOf(Share share) {
  switch (share) {
    case Share::None:
      return 0;
    case Share::Read:
      return FILE_SHARE_READ;
    case Share::ReadWrite:
      return FILE_SHARE_READ | FILE_SHARE_WRITE;
    case Share::ReadWriteDelete:
      break;
  }
  return FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
}

DWORD DispositionOf(Disposition disposition) {
  switch (disposition) {
    case Disposition::OpenExisting:
      return OPEN_EXISTING;
    case Disposition::OpenAlways:
      return OPEN_ALWAYS;
    case Disposition::CreateNew:
      return CREATE_NEW;
    case Disposition::CreateAlways:
      break;
  }
  return CREATE_ALWAYS;
}

// What one call takes at most; a multiple of any sector size.
DWORD ChunkOf(std::size_t bytes) {
  return static_cast<DWORD>(std::min<std::size_t>(bytes, 0x4000'0000));
}

Code MovePosition(std::intptr_t handle, std::int64_t distance, DWORD origin) {
  LastErrorKeeper lastError;
  LARGE_INTEGER move{};
  move.QuadPart = distance;
  return lastError.Outcome(::SetFilePointerEx(HandleOf(handle), move, nullptr, origin) != 0);
}

}  // namespace

void File::Close() {
  if (IsOpen()) {
    LastErrorKeeper lastError;
    ::CloseHandle(HandleOf(std::exchange(handle_, kNone)));
  }
}

Code File::Read(std::span<std::byte> buffer, std::size_t* count) {
  LastErrorKeeper lastError;
  DWORD read = 0;
  const Code code = lastError.Outcome(
      ::ReadFile(HandleOf(handle_), buffer.data(), ChunkOf(buffer.size()), &read, nullptr) != 0);
  *count = read;
  return code;
}

Code File::Write(std::span<const std::byte> bytes) {
  LastErrorKeeper lastError;
  while (!bytes.empty()) {
    DWORD written = 0;
    const Code code = lastError.Outcome(::WriteFile(HandleOf(handle_), bytes.data(),
                                                    ChunkOf(bytes.size()), &written, nullptr) != 0);
    if (code != kSuccess) {
      return code;
    }
    bytes = bytes.subspan(written);
  }
  return kSuccess;
}

Code File::Size(std::uint64_t* size) {
  LastErrorKeeper lastError;
  LARGE_INTEGER value{};
  const Code code = lastError.Outcome(::GetFileSizeEx(HandleOf(handle_), &value) != 0);
  *size = static_cast<std::uint64_t>(value.QuadPart);
  return code;
}

Code File::Seek(std::uint64_t position) {
  return MovePosition(handle_, static_cast<std::int64_t>(position), FILE_BEGIN);
}

Code File::SeekToEnd() { return MovePosition(handle_, 0, FILE_END); }

Code File::SetSize(std::uint64_t size) {
  LastErrorKeeper lastError;
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(size);
  return lastError.Outcome(
      ::SetFileInformationByHandle(HandleOf(handle_), FileEndOfFileInfo, &end, sizeof(end)) != 0);
}

Code File::Flush() {
  LastErrorKeeper lastError;
  return lastError.Outcome(::FlushFileBuffers(HandleOf(handle_)) != 0);
}

Code File::SetLastWriteTime(std::uint64_t time) {
  LastErrorKeeper lastError;
  const FILETIME fileTime = {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
  return lastError.Outcome(::SetFileTime(HandleOf(handle_), nullptr, nullptr, &fileTime) != 0);
}

Code Open(cvn::StringView path, Access access, Share share, Disposition disposition, File* file) {
  LastErrorKeeper lastError;
  File opened;
  opened.handle_ = reinterpret_cast<std::intptr_t>(
      ::CreateFileW(Wide(PathForCall(path)), AccessOf(access), ShareOf(share), nullptr,
                    DispositionOf(disposition), FILE_ATTRIBUTE_NORMAL, nullptr));
  const Code code = lastError.Outcome(opened.IsOpen());
  if (code == kSuccess) {
    *file = std::move(opened);
  }
  return code;
}

Code CreateDirectory(cvn::StringView path) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::CreateDirectoryW(Wide(PathForCall(path)), nullptr) != 0);
}

Code Replace(cvn::StringView from, cvn::StringView to) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::MoveFileExW(Wide(PathForCall(from)), Wide(PathForCall(to)),
                                         MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0);
}

Code TakePlace(cvn::StringView from, cvn::StringView to) {
  LastErrorKeeper lastError;
  const DWORD attributes = ::GetFileAttributesW(Wide(PathForCall(to)));
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return lastError.Outcome(
        ::MoveFileExW(Wide(PathForCall(from)), Wide(PathForCall(to)), MOVEFILE_WRITE_THROUGH) != 0);
  }
  // Where ReplaceFileW looks at neither, as in Wine, a folder would be lost.
  if ((attributes & (kDirectory | kReadOnly)) != 0) {
    ::SetLastError(ERROR_ACCESS_DENIED);
    return lastError.Outcome(false);
  }
  bool done = ::ReplaceFileW(Wide(PathForCall(to)), Wide(PathForCall(from)), nullptr,
                             REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != 0;
  // The old file is gone then, as documented, and the new one is all that there is.
  if (!done && ::GetLastError() == ERROR_UNABLE_TO_MOVE_REPLACEMENT) {
    done =
        ::MoveFileExW(Wide(PathForCall(from)), Wide(PathForCall(to)), MOVEFILE_WRITE_THROUGH) != 0;
  }
  return lastError.Outcome(done);
}

bool HasOtherNames(cvn::StringView path) {
  LastErrorKeeper lastError;
  const HANDLE handle = ::CreateFileW(Wide(PathForCall(path)), FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    return false;
  }
  BY_HANDLE_FILE_INFORMATION information{};
  const bool isKnown = ::GetFileInformationByHandle(handle, &information) != 0;
  ::CloseHandle(handle);
  return isKnown && information.nNumberOfLinks > 1;
}

Code FlushFolder(cvn::StringView /*path*/) { return kSuccess; }

Code Delete(cvn::StringView path) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::DeleteFileW(Wide(PathForCall(path))) != 0);
}

Code RemoveDirectory(cvn::StringView path) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::RemoveDirectoryW(Wide(PathForCall(path))) != 0);
}

Code GetAttributes(cvn::StringView path, Attributes* attributes) {
  LastErrorKeeper lastError;
  const DWORD word = ::GetFileAttributesW(Wide(PathForCall(path)));
  const Code code = lastError.Outcome(word != INVALID_FILE_ATTRIBUTES);
  if (code == kSuccess) {
    *attributes = word;
  }
  return code;
}

Code SetAttributes(cvn::StringView path, Attributes attributes) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::SetFileAttributesW(Wide(PathForCall(path)), attributes) != 0);
}

Code Copy(cvn::StringView from, cvn::StringView to, bool failIfExists) {
  const bool isDone =
      ::CopyFileW(Wide(PathForCall(from)), Wide(PathForCall(to)), failIfExists ? TRUE : FALSE) != 0;
  const Code code = isDone ? ERROR_SUCCESS : ::GetLastError();
  ::SetLastError(code);
  return code;
}

Code Move(cvn::StringView from, cvn::StringView to, std::uint32_t flags) {
  LastErrorKeeper lastError;
  return lastError.Outcome(::MoveFileExW(Wide(PathForCall(from)), Wide(PathForCall(to)), flags) !=
                           0);
}

Code DeleteAtReboot(cvn::StringView path) {
  LastErrorKeeper lastError;
  return lastError.Outcome(
      ::MoveFileExW(Wide(PathForCall(path)), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT) != 0);
}

}  // namespace platform::files
