// A hive's bytes in memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/formats/hive_cells.h"

namespace platform::test {

// Bytes in memory. A change outside of what was asked for is a failure.
class MemoryBytes final : public posix::HiveBytes {
 public:
  explicit MemoryBytes(std::vector<std::byte> start) : bytes(std::move(start)) {}

  std::span<const std::byte> Bytes() const override { return bytes; }
  std::byte* Change(std::uint32_t offset, std::uint32_t size) override {
    EXPECT_LE(std::size_t{offset} + size, bytes.size());
    changed.emplace_back(offset, size);
    return bytes.data() + offset;
  }
  Code Grow(std::uint32_t size) override {
    EXPECT_EQ(size % 4096, 0U);
    if (bytes.size() + size > limit) {
      return kDiskFull;
    }
    bytes.resize(bytes.size() + size);
    return kSuccess;
  }
  void ExpectOnlyChanged(std::vector<std::byte> before) {
    before.resize(bytes.size());
    for (const auto& [offset, size] : changed) {
      std::copy_n(bytes.begin() + offset, size, before.begin() + offset);
    }
    EXPECT_TRUE(before == bytes);
    changed.clear();
  }

  std::vector<std::byte> bytes;
  std::size_t limit = SIZE_MAX;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> changed;
};

}  // namespace platform::test
