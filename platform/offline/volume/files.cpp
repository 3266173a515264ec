#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "platform/linux/error_map.h"
#include "platform/linux/file_time.h"
#include "platform/linux/same_file.h"
#include "platform/offline/volume/attributes.h"
#include "platform/offline/volume/file_steps.h"
#include "platform/offline/volume/ntfs_security.h"
#include "platform/offline/volume/share_locks.h"
#include "platform/offline/volume/volume.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Fail;
using posix::HostPath;
using posix::Report;

constexpr Code kNegativeSeek = 131;
constexpr mode_t kFileMode = 0666;
constexpr mode_t kFolderMode = 0777;

int FlagsOf(Access access, Disposition disposition) {
  int flags = O_NOCTTY;
  flags |= access == Access::Read ? O_RDONLY : access == Access::Write ? O_WRONLY : O_RDWR;
  if (disposition != Disposition::OpenExisting) {
    flags |= O_CREAT;
  }
  if (disposition == Disposition::CreateNew) {
    flags |= O_EXCL;
  }
  return flags;
}

// The attributes that are stored apart from a file can't be read without the right to read it: it
// counts as a file without them.
Code KnownAttributes(const HostPath& host, Attributes* attributes) {
  const Code code = posix::ReadAttributes(host.At(), host.entry, host.IsFolder(), attributes);
  return code == kAccessDenied ? kSuccess : code;
}

// Checks an open descriptor, and then empties the file where that is asked for: emptied earlier, it
// would lose its content to an open that fails. The entry of `*host` becomes the open file's.
Code Prepare(int descriptor, HostPath* host, Access access, Share share, Disposition disposition) {
  struct stat& entry = host->entry;
  if (fstat(descriptor, &entry) != 0) {
    return CodeOf(errno);
  }
  const bool isFile = S_ISREG(entry.st_mode);
  const bool writes = access != Access::Read;
  if (S_ISDIR(entry.st_mode) || (isFile && writes && posix::IsReadOnly(*host))) {
    return kAccessDenied;
  }
  if (!isFile) {
    return host->onMachine ? kAccessDenied : kSuccess;
  }
  Code code = kSuccess;
  if (disposition == Disposition::CreateAlways) {
    // As on Windows, a file that is hidden can't be made anew as one that is not.
    Attributes attributes = 0;
    code = KnownAttributes(*host, &attributes);
    if (code != kSuccess || (attributes & (kHidden | kSystem)) != 0) {
      return code == kSuccess ? kAccessDenied : code;
    }
  }
  code = posix::TakeShare(descriptor, access, share);
  if (code != kSuccess || disposition != Disposition::CreateAlways || entry.st_size == 0) {
    return code;
  }
  return ftruncate(descriptor, 0) == 0 ? kSuccess : CodeOf(errno, kWriteFault);
}

Code Unlink(const HostPath& host, int flags = 0) {
  return unlinkat(host.At().folder, host.At().name, flags) == 0 ? kSuccess : CodeOf(errno);
}

// A read or a write in a direction that the file was not opened for is EBADF to the host.
Code TransferFault(Code ioFault) { return errno == EBADF ? kAccessDenied : CodeOf(errno, ioFault); }

}  // namespace
}  // namespace platform::files

namespace platform::posix {

Code OpenFile(cvn::StringView path, files::Access access, files::Share share,
              files::Disposition disposition, Readers readers, files::File* file) {
  HostPath host;
  const Code located = LocateFile(path, disposition, &host);
  if (located != kSuccess) {
    return located;
  }
  const bool isThere = host.entry.st_mode != 0;
  // To open a device of the host is to use it, and to open a pipe is to wait: a volume has neither.
  if (host.onMachine && isThere && !S_ISREG(host.entry.st_mode)) {
    return kAccessDenied;
  }
  int descriptor = -1;
  const auto openFile = [&] {
    const int wait = host.onMachine ? O_NONBLOCK : 0;
    descriptor = host.Open(files::FlagsOf(access, disposition) | wait, files::kFileMode);
    return descriptor < 0 ? CodeOf(errno, kReadFault) : kSuccess;
  };
  Code code = isThere ? openFile() : ChangeFolder(host, openFile);
  if (code != kSuccess) {
    return code;
  }
  files::File opened(descriptor);
  code = files::Prepare(descriptor, &host, access, share, disposition);
  if (code == kSuccess && !isThere) {
    code = readers == Readers::Inherited ? InheritSecurity(host.At().folder, descriptor)
                                         : KeepForOwner(descriptor);
  }
  if (code == kSuccess) {
    *file = std::move(opened);
  } else if (disposition == files::Disposition::CreateNew) {
    IgnoreError(files::Unlink(host));  // the caller gets no file, so none is left
  }
  return code;
}

}  // namespace platform::posix

namespace platform::files {

void File::Close() {
  if (IsOpen()) {
    close(static_cast<int>(std::exchange(handle_, kNone)));
  }
}

Code File::Read(std::span<std::byte> buffer, std::size_t* count) {
  *count = 0;
  if (!IsOpen()) {
    return Fail(kInvalidHandle);
  }
  ssize_t length = 0;
  do {
    length = read(static_cast<int>(handle_), buffer.data(), buffer.size());
  } while (length < 0 && errno == EINTR);
  if (length < 0) {
    return Fail(TransferFault(kReadFault));
  }
  *count = static_cast<std::size_t>(length);
  return kSuccess;
}

Code File::Write(std::span<const std::byte> bytes) {
  if (!IsOpen()) {
    return Fail(kInvalidHandle);
  }
  while (!bytes.empty()) {
    const ssize_t length = write(static_cast<int>(handle_), bytes.data(), bytes.size());
    if (length >= 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(length));
    } else if (errno != EINTR) {
      return Fail(TransferFault(kWriteFault));
    }
  }
  return kSuccess;
}

Code File::Size(std::uint64_t* size) {
  struct stat entry {};
  if (fstat(static_cast<int>(handle_), &entry) != 0) {
    return Fail(CodeOf(errno));
  }
  *size = static_cast<std::uint64_t>(entry.st_size);
  return kSuccess;
}

Code File::Seek(std::uint64_t position) {
  if (position > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
    return Fail(kNegativeSeek);
  }
  const auto offset = static_cast<off_t>(position);
  return lseek(static_cast<int>(handle_), offset, SEEK_SET) < 0 ? Fail(CodeOf(errno)) : kSuccess;
}

Code File::SeekToEnd() {
  return lseek(static_cast<int>(handle_), 0, SEEK_END) < 0 ? Fail(CodeOf(errno)) : kSuccess;
}

Code File::SetSize(std::uint64_t size) {
  return ftruncate(static_cast<int>(handle_), static_cast<off_t>(size)) == 0
             ? kSuccess
             : Fail(CodeOf(errno, kWriteFault));
}

Code File::Flush() {
  const int flags = fcntl(static_cast<int>(handle_), F_GETFL);
  if (flags >= 0 && (flags & O_ACCMODE) == O_RDONLY) {
    return Fail(kAccessDenied);
  }
  // EINVAL: a pipe or a device, which has no disk to reach.
  if (fsync(static_cast<int>(handle_)) == 0 || errno == EINVAL) {
    return kSuccess;
  }
  return Fail(CodeOf(errno, kWriteFault));
}

Code File::SetLastWriteTime(std::uint64_t time) {
  const timespec times[] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, posix::TimeOf(time)};
  return futimens(static_cast<int>(handle_), times) == 0 ? kSuccess : Fail(CodeOf(errno));
}

Code Open(cvn::StringView path, Access access, Share share, Disposition disposition, File* file) {
  return Report(posix::OpenFile(path, access, share, disposition, posix::Readers::Inherited, file));
}

Code CreateDirectory(cvn::StringView path) {
  HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (host.device != posix::Device::None) {
    return Fail(host.DeviceFault(platform::kDirectory));
  }
  if (host.entry.st_mode != 0) {
    return Fail(kAlreadyExists);
  }
  if (code != kFileNotFound) {
    return Fail(code);
  }
  return Report(
      posix::ChangeFolder(host, [&host] { return posix::MakeFolder(host.At(), kFolderMode); }));
}

Code Delete(cvn::StringView path) {
  HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    const bool kept = host.IsFolder() || posix::IsReadOnly(host);
    code = kept ? kAccessDenied : posix::CheckUnused(host);
  }
  if (code == kSuccess) {
    code = posix::ChangeFolder(host, [&host] { return Unlink(host); });
  }
  return Report(code);
}

Code RemoveDirectory(cvn::StringView path) {
  HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (code != kSuccess) {
    return Fail(code);
  }
  if (!host.IsFolder()) {
    return Fail(platform::kDirectory);
  }
  if (host.isRoot || posix::IsReadOnly(host)) {
    return Fail(kAccessDenied);
  }
  struct stat current {};
  if (stat(".", &current) == 0 && posix::IsSameFile(current, host.entry)) {
    return Fail(kSharingViolation);
  }
  const bool isLink = S_ISLNK(host.entry.st_mode);
  return Report(posix::ChangeFolder(host, [&] {
    const Code removed = Unlink(host, isLink ? 0 : AT_REMOVEDIR);
    return removed == kFileExists ? kDirNotEmpty : removed;
  }));
}

bool HasOtherNames(cvn::StringView path) {
  HostPath host;
  return posix::Resolve(path, &host) == kSuccess && posix::FollowLink(&host) == kSuccess &&
         posix::IsSharedContent(host);
}

Code FlushFolder(cvn::StringView path) {
  HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = posix::FollowLink(&host);
  }
  if (code == kSuccess) {
    const posix::Descriptor folder(host.Open(O_PATH | O_DIRECTORY));
    code = folder.Get() < 0 ? CodeOf(errno) : posix::FlushFolder(folder.Get());
  }
  return Report(code);
}

Code GetAttributes(cvn::StringView path, Attributes* attributes) {
  HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = KnownAttributes(host, attributes);
  }
  return Report(code);
}

Code SetAttributes(cvn::StringView path, Attributes attributes) {
  HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = host.DeviceFault(kInvalidParameter);
  }
  return Report(code == kSuccess ? posix::StoreAttributes(host.At(), host.entry, attributes)
                                 : code);
}

}  // namespace platform::files
