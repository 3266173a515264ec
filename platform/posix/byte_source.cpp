#include "platform/posix/byte_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace platform::posix {

ByteSource::ByteSource(std::span<const std::byte> bytes) : bytes_(bytes), size_(bytes.size()) {}

ByteSource::ByteSource(const files::File& file) : descriptor_(static_cast<int>(file.Handle())) {
  struct stat entry {};
  if (fstat(descriptor_, &entry) == 0 && S_ISREG(entry.st_mode)) {
    size_ = static_cast<std::uint64_t>(entry.st_size);
  }
}

bool ByteSource::Holds(Range range) const {
  return range.offset <= size_ && range.size <= size_ - range.offset;
}

bool ByteSource::Read(std::uint64_t offset, std::span<std::byte> buffer) const {
  if (!Holds({offset, buffer.size()})) {
    return false;
  }
  if (descriptor_ < 0) {
    std::ranges::copy(bytes_.subspan(offset, buffer.size()), buffer.begin());
    return true;
  }
  while (!buffer.empty()) {
    const ssize_t count =
        pread(descriptor_, buffer.data(), buffer.size(), static_cast<off_t>(offset));
    if (count > 0) {
      offset += static_cast<std::uint64_t>(count);
      buffer = buffer.subspan(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace platform::posix
