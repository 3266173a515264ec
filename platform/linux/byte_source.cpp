#include "platform/byte_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace platform {

ByteSource::ByteSource(const files::File& file) : isFile_(true), file_(file.Handle()) {
  struct stat entry {};
  if (fstat(static_cast<int>(file_), &entry) == 0 && S_ISREG(entry.st_mode)) {
    size_ = static_cast<std::uint64_t>(entry.st_size);
  }
}

bool ByteSource::ReadFile(std::uint64_t offset, std::span<std::byte> buffer) const {
  while (!buffer.empty()) {
    const ssize_t count =
        pread(static_cast<int>(file_), buffer.data(), buffer.size(), static_cast<off_t>(offset));
    if (count > 0) {
      offset += static_cast<std::uint64_t>(count);
      buffer = buffer.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace platform
