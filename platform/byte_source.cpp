#include "platform/byte_source.h"

#include <algorithm>

namespace platform {

ByteSource::ByteSource(std::span<const std::byte> bytes) : bytes_(bytes), size_(bytes.size()) {}

bool ByteSource::Holds(Range range) const {
  return range.offset <= size_ && range.size <= size_ - range.offset;
}

bool ByteSource::Read(std::uint64_t offset, std::span<std::byte> buffer) const {
  if (!Holds({offset, buffer.size()})) {
    return false;
  }
  if (isFile_) {
    return ReadFile(offset, buffer);
  }
  std::ranges::copy(bytes_.subspan(offset, buffer.size()), buffer.begin());
  return true;
}

}  // namespace platform
