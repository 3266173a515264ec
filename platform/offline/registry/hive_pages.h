// The bytes of a hive as this process sees them: the primary file, mapped, under what a log or the
// process itself has changed. Memory is used for the pages that are looked at or changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_cells.h"
#include "platform/formats/hive_log.h"

namespace platform::posix {

class HivePages : public HiveBytes {
 public:
  static constexpr std::size_t kPage = 4096;

  HivePages() = default;
  HivePages(const HivePages&) = delete;
  HivePages& operator=(const HivePages&) = delete;
  ~HivePages() override { Reset(); }

  // Takes the first `size` bytes, whole pages, of an open file, which has `fileSize` bytes; what it
  // lacks is zeros. What was here before is forgotten.
  Code Map(int file, std::size_t fileSize, std::size_t size);
  void Reset();

  std::span<const std::byte> Bytes() const override { return {start_, size_}; }
  std::byte* Change(std::uint32_t offset, std::uint32_t size) override;
  Code Grow(std::uint32_t size) override;

  // Brings in what a log has: `dataSize` bytes of bins, and the pages, whose last byte lies in
  // them.
  Code Apply(std::uint32_t dataSize, std::span<const LoggedPage> pages);

  // The pages behind the base block that were changed since the last Settle, and that no log has.
  // In the order of their offsets.
  std::vector<LoggedPage> Changed();
  bool IsChanged() const { return !changed_.empty(); }
  // A log has them from here on. Can't fail right after Changed.
  void Settle();

  // The pages that the primary file lacks. In the order of their offsets, in runs.
  std::vector<LoggedPage> Missing();
  std::size_t MissingPages() const { return missing_.size(); }
  // The primary file has them from here on.
  void Settled() { Forget(&missing_, kMissing); }

  // True when a page couldn't be read: the file was cut, or the disk fails. Its place then has
  // zeros.
  bool IsTorn() const { return isTorn_; }

 private:
  friend struct TornPages;
  enum : std::uint8_t { kChanged = 1, kMissing = 2 };

  void Shrink(std::size_t size);
  std::vector<LoggedPage> Sorted(std::vector<std::uint32_t>* pages, bool inRuns);
  void Mark(std::size_t first, std::size_t end, std::uint8_t mark,
            std::vector<std::uint32_t>* pages);
  void Forget(std::vector<std::uint32_t>* pages, std::uint8_t mark);

  std::byte* start_ = nullptr;
  std::size_t size_ = 0;
  std::size_t highest_ = 0;             // that size_ has been
  std::vector<std::uint8_t> marks_;     // a page each
  std::vector<std::uint32_t> changed_;  // numbers of pages
  std::vector<std::uint32_t> missing_;
  volatile bool isTorn_ = false;
};

}  // namespace platform::posix
