#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <limits>

#include "platform/posix/error_map.h"
#include "platform/posix/path_resolver.h"
#include "platform/posix/share_locks.h"

namespace platform::files {
namespace {

using posix::CodeOf;
using posix::Fail;
using posix::HostPath;

constexpr Code kNegativeSeek = 131;
constexpr mode_t kFileMode = 0666;
constexpr mode_t kFolderMode = 0777;

// A failure becomes the thread's last error; success leaves that alone.
Code Report(Code code) { return code == kSuccess ? code : Fail(code); }

// READONLY of Windows. It binds everyone, where the host's permission would not bind root.
bool IsReadOnly(const struct stat& entry) {
  return S_ISREG(entry.st_mode) && (entry.st_mode & S_IWUSR) == 0;
}

int FlagsOf(Access access, Disposition disposition) {
  int flags = O_CLOEXEC | O_NOCTTY;
  flags |= access == Access::Read ? O_RDONLY : access == Access::Write ? O_WRONLY : O_RDWR;
  if (disposition != Disposition::OpenExisting) {
    flags |= O_CREAT;
  }
  if (disposition == Disposition::CreateNew) {
    flags |= O_EXCL;
  }
  return flags;
}

// Where the file to open is, or is to be made.
Code Locate(cvn::StringView path, Disposition disposition, HostPath* host) {
  const Code code = posix::Resolve(path, host);
  if (code == kFileNotFound && disposition != Disposition::OpenExisting) {
    return host->endsInSeparator ? kInvalidName : kSuccess;
  }
  if (code != kSuccess) {
    return code;
  }
  if (disposition == Disposition::CreateNew) {
    return kFileExists;
  }
  if (host->IsFolder()) {
    return host->endsInSeparator ? kPathNotFound : kAccessDenied;
  }
  return kSuccess;
}

// Checks an open descriptor, and empties the file where that is asked for: not before this opening
// is known to be in order, for the content would be lost.
Code Prepare(int descriptor, Access access, Share share, Disposition disposition) {
  struct stat entry {};
  if (fstat(descriptor, &entry) != 0) {
    return CodeOf(errno);
  }
  if (S_ISDIR(entry.st_mode) || (access != Access::Read && IsReadOnly(entry))) {
    return kAccessDenied;
  }
  if (!S_ISREG(entry.st_mode)) {
    return kSuccess;
  }
  const Code code = posix::TakeShare(descriptor, access, share);
  if (code != kSuccess || disposition != Disposition::CreateAlways || entry.st_size == 0) {
    return code;
  }
  return ftruncate(descriptor, 0) == 0 ? kSuccess : CodeOf(errno, kWriteFault);
}

// Nobody who has a file open lets others delete or rename it: there is no share mode for that here.
Code CheckUnused(const HostPath& host) {
  return S_ISREG(host.entry.st_mode) && posix::IsInUse(host.path) ? kSharingViolation : kSuccess;
}

// Finds both ends of a move, and checks that the one may take the place of the other.
Code LocateMove(cvn::StringView from, cvn::StringView to, HostPath* source, HostPath* target) {
  Code code = posix::Resolve(from, source);
  if (code == kSuccess) {
    code = CheckUnused(*source);
  }
  if (code != kSuccess) {
    return code;
  }
  code = posix::Resolve(to, target);
  if (code == kFileNotFound) {
    return target->endsInSeparator && !source->IsFolder() ? kInvalidName : kSuccess;
  }
  if (code != kSuccess || source->path == target->path) {
    return code;
  }
  if (target->IsFolder() || source->IsFolder() || IsReadOnly(target->entry)) {
    return kAccessDenied;
  }
  return CheckUnused(*target);
}

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// Makes a change of names in a folder last.
Code FlushFolder(const std::string& folder) {
  const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return errno == EACCES ? kSuccess : CodeOf(errno);  // may be written, but not read
  }
  const Code code =
      fsync(descriptor) == 0 || errno == EINVAL ? kSuccess : CodeOf(errno, kWriteFault);
  close(descriptor);
  return code;
}

// A read or a write in a direction that the file was not opened for is EBADF to the host.
Code TransferFault(Code ioFault) { return errno == EBADF ? kAccessDenied : CodeOf(errno, ioFault); }

}  // namespace

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

Code Open(cvn::StringView path, Access access, Share share, Disposition disposition, File* file) {
  HostPath host;
  const Code located = Locate(path, disposition, &host);
  if (located != kSuccess) {
    return Fail(located);
  }
  int descriptor = -1;
  do {
    descriptor = open(host.path.c_str(), FlagsOf(access, disposition), kFileMode);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    return Fail(CodeOf(errno));
  }
  File opened;
  opened.handle_ = descriptor;
  const Code prepared = Prepare(descriptor, access, share, disposition);
  if (prepared != kSuccess) {
    return Fail(prepared);
  }
  *file = std::move(opened);
  return kSuccess;
}

Code CreateDirectory(cvn::StringView path) {
  HostPath host;
  const Code code = posix::Resolve(path, &host);
  if (host.entry.st_mode != 0) {
    return Fail(kAlreadyExists);
  }
  if (code != kFileNotFound) {
    return Fail(code);
  }
  if (mkdir(host.path.c_str(), kFolderMode) != 0) {
    return Fail(errno == EEXIST ? kAlreadyExists : CodeOf(errno));
  }
  return kSuccess;
}

Code Replace(cvn::StringView from, cvn::StringView to) {
  HostPath source;
  HostPath target;
  const Code code = LocateMove(from, to, &source, &target);
  if (code != kSuccess) {
    return Fail(code);
  }
  const std::string folder = FolderOf(target.path);
  // Onto itself, a move gives the name a new spelling.
  const std::string place = source.path == target.path ? folder + target.name : target.path;
  if (rename(source.path.c_str(), place.c_str()) != 0) {
    return Fail(CodeOf(errno));
  }
  const Code flushed = FlushFolder(folder);
  const std::string before = FolderOf(source.path);
  return Report(flushed == kSuccess && before != folder ? FlushFolder(before) : flushed);
}

Code Delete(cvn::StringView path) {
  HostPath host;
  Code code = posix::Resolve(path, &host);
  if (code == kSuccess) {
    code = host.IsFolder() || IsReadOnly(host.entry) ? kAccessDenied : CheckUnused(host);
  }
  if (code == kSuccess && unlink(host.path.c_str()) != 0) {
    code = CodeOf(errno);
  }
  return Report(code);
}

}  // namespace platform::files
