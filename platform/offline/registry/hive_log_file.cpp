#include "platform/offline/registry/hive_log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/linux/error_map.h"

namespace platform::posix {
namespace {

// O_NONBLOCK: a pipe in the place of the file would let the run wait for ever.
constexpr int kOpenFlags = O_NONBLOCK | O_NOFOLLOW;

std::uint64_t SizeOf(int file) {
  struct stat status {};
  const bool isFile = fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  return isFile ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

Code RegistryFault(int error) { return CodeOf(error, kRegistryIoFailed); }

Code ReadAt(int file, std::uint64_t offset, std::span<std::byte> bytes, std::size_t* got) {
  *got = 0;
  while (*got < bytes.size()) {
    const ssize_t count =
        pread(file, bytes.data() + *got, bytes.size() - *got, static_cast<off_t>(offset + *got));
    if (count == 0) {
      break;
    }
    if (count < 0 && errno != EINTR) {
      return CodeOf(errno, kReadFault);
    }
    *got += count < 0 ? 0 : static_cast<std::size_t>(count);
  }
  return kSuccess;
}

Code WriteAt(int file, std::uint64_t offset, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno != EINTR) {
      return RegistryFault(errno);
    }
    const std::size_t written = count < 0 ? 0 : static_cast<std::size_t>(count);
    bytes = bytes.subspan(written);
    offset += written;
  }
  return kSuccess;
}

bool LogFile::Open() {
  file_.Reset(place_.Open(O_RDONLY | kOpenFlags));
  std::size_t got = 0;
  return file_.Get() >= 0 && SizeOf(file_.Get()) != 0 &&
         ReadAt(file_.Get(), 0, base_.Bytes(), &got) == kSuccess && got == BaseBlock::kSize &&
         base_.IsSound();
}

Code LogFile::OpenForWriting(int like, bool* isNew) {
  file_.Reset(place_.Open(O_RDWR | kOpenFlags));
  *isNew = file_.Get() < 0 && errno == ENOENT;
  struct stat status {};
  if (*isNew) {
    file_.Reset(place_.Open(O_RDWR | O_CREAT | O_EXCL | kOpenFlags, 0600));
  }
  if (file_.Get() < 0 || fstat(file_.Get(), &status) != 0) {
    return RegistryFault(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return kAccessDenied;
  }
  return !*isNew                     ? kSuccess
         : fstat(like, &status) == 0 ? CopyMetadata(like, status, file_.Get(), Streams::Leave)
                                     : RegistryFault(errno);
}

bool LogFile::HeaderAt(std::uint64_t offset, std::uint64_t* size, std::uint32_t* number) const {
  std::array<std::byte, LogEntry::kHeader> header;
  std::size_t got = 0;
  if (ReadAt(file_.Get(), offset, header, &got) != kSuccess || got < header.size()) {
    return false;
  }
  const std::optional<std::size_t> found = LogEntry::SizeOf(header);
  *size = found.value_or(0);
  *number = LogEntry::NumberOf(header);
  return found.has_value();
}

std::optional<LogEntry> LogFile::EntryAt(std::uint64_t offset,
                                         std::vector<std::byte>* bytes) const {
  std::uint64_t size = 0;
  std::uint32_t number = 0;
  if (!HeaderAt(offset, &size, &number) || size > SizeOf(file_.Get()) - offset) {
    return std::nullopt;
  }
  bytes->resize(size);
  std::size_t got = 0;
  return ReadAt(file_.Get(), offset, *bytes, &got) == kSuccess && got == size
             ? LogEntry::Read(*bytes)
             : std::nullopt;
}

std::uint64_t LogFile::Find(std::uint32_t number) const {
  std::uint64_t size = 0;
  std::uint32_t found = 0;
  for (std::uint64_t at = BaseBlock::kSize; HeaderAt(at, &size, &found); at += size) {
    if (found == number) {
      return at;
    }
  }
  return 0;
}

std::optional<std::uint32_t> LogFile::LastAfter(std::uint32_t number) const {
  std::optional<std::uint32_t> last;
  std::uint64_t size = 0;
  std::uint32_t found = 0;
  for (std::uint64_t at = Find(number); at != 0 && HeaderAt(at, &size, &found) && found == number;
       at += size) {
    last = number++;
  }
  return last;
}

Code LogFile::ReadAll(std::vector<std::byte>* bytes) const {
  bytes->resize(SizeOf(file_.Get()));
  std::size_t got = 0;
  const Code code = ReadAt(file_.Get(), 0, *bytes, &got);
  bytes->resize(got);
  return code;
}

}  // namespace platform::posix
