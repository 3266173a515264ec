// Numbers as Windows stores them.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>

namespace platform {

// The number at `offset`; 0 when `bytes` ends before it does.
template <typename T>
T NumberAt(std::span<const std::byte> bytes, std::size_t offset) {
  T number = 0;
  if (offset <= bytes.size() && sizeof(T) <= bytes.size() - offset) {
    std::memcpy(&number, bytes.data() + offset, sizeof(T));
  }
  return number;
}

}  // namespace platform
