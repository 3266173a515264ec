#include "platform/byte_source.h"

#include <algorithm>

#include "platform/windows/wide.h"

namespace platform {

ByteSource::ByteSource(const files::File& file) : isFile_(true), file_(file.Handle()) {
  windows::LastErrorKeeper lastError;
  LARGE_INTEGER size{};
  if (::GetFileSizeEx(reinterpret_cast<HANDLE>(file_), &size) != 0) {
    size_ = static_cast<std::uint64_t>(size.QuadPart);
  }
}

bool ByteSource::ReadFile(std::uint64_t offset, std::span<std::byte> buffer) const {
  constexpr std::size_t kLargestRead = 1 << 30;
  windows::LastErrorKeeper lastError;
  while (!buffer.empty()) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD count = 0;
    if (::ReadFile(reinterpret_cast<HANDLE>(file_), buffer.data(),
                   static_cast<DWORD>(std::min(buffer.size(), kLargestRead)), &count,
                   &place) == 0 ||
        count == 0) {
      return false;
    }
    offset += count;
    buffer = buffer.subspan(count);
  }
  return true;
}

}  // namespace platform
