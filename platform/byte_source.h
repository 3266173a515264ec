// Bytes that are read at any place, so that nothing has to be in memory as a whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/files.h"

namespace platform {

// A stretch of a file.
struct Range {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  std::uint64_t End() const { return offset + size; }
};

class ByteSource {
 public:
  // Bytes in memory, which outlive this.
  explicit ByteSource(std::span<const std::byte> bytes);
  // An open file, which outlives this. Its size is the one that it has now; its position
  // doesn't matter, and is undefined after a Read.
  explicit ByteSource(const files::File& file);

  std::uint64_t Size() const { return size_; }
  bool Holds(Range range) const;
  // Fills `buffer` with the bytes from `offset` on. False when they aren't all there.
  bool Read(std::uint64_t offset, std::span<std::byte> buffer) const;

 private:
  // Read, from the file, of bytes that were there.
  bool ReadFile(std::uint64_t offset, std::span<std::byte> buffer) const;

  std::span<const std::byte> bytes_;
  bool isFile_ = false;
  std::intptr_t file_ = 0;  // the platform's handle
  std::uint64_t size_ = 0;
};

}  // namespace platform
