// The cells of a hive file: finding one by its offset, and the chain of those that are free.
#include <algorithm>
#include <stdexcept>

#include "platform/formats/hive_file.h"
#include "platform/formats/hive_layout.h"

namespace platform::posix {

HiveFile::View HiveFile::At(Cell cell) const {
  const std::size_t start = kBaseSize + std::size_t{cell};
  if (cell % kCellUnit != 0 || start + kCellHeader > bytes_.size()) {
    return {};
  }
  const std::int64_t size = -std::int64_t{Fetch<std::int32_t>(&bytes_[start])};
  if (size < static_cast<std::int64_t>(kCellUnit) ||
      size % static_cast<std::int64_t>(kCellUnit) != 0 ||
      static_cast<std::size_t>(size) > bytes_.size() - start) {
    return {};
  }
  return View(
      std::span(bytes_).subspan(start + kCellHeader, static_cast<std::size_t>(size) - kCellHeader));
}

std::byte* HiveFile::Payload(Cell cell) { return &bytes_[kBaseSize + cell + kCellHeader]; }

Code HiveFile::PrepareToChange() {
  if (isPrepared_) {
    return kSuccess;
  }
  free_.clear();
  for (std::size_t bin = kBaseSize; bin < bytes_.size();) {
    const std::size_t end = bin + Fetch<std::uint32_t>(&bytes_[bin + kBinSize]);
    if (!CollectFreeCells(bin, end)) {
      return kBadDatabase;
    }
    bin = end;
  }
  isPrepared_ = true;
  return kSuccess;
}

bool HiveFile::CollectFreeCells(std::size_t bin, std::size_t end) {
  std::size_t freeFrom = 0;
  const auto keep = [&](std::size_t until) {
    if (freeFrom != 0) {
      Store(&bytes_[freeFrom], static_cast<std::int32_t>(until - freeFrom));
      free_.emplace(until - freeFrom, static_cast<Cell>(freeFrom - kBaseSize));
      freeFrom = 0;
    }
  };
  for (std::size_t at = bin + kBinHeader; at < end;) {
    const std::int64_t header = Fetch<std::int32_t>(&bytes_[at]);
    const auto size = static_cast<std::size_t>(header < 0 ? -header : header);
    if (size < kCellUnit || size % kCellUnit != 0 || size > end - at) {
      return false;
    }
    if (header < 0) {
      keep(at);
    } else if (freeFrom == 0) {
      freeFrom = at;
    }
    at += size;
  }
  keep(end);
  return true;
}

HiveFile::Cell HiveFile::Allocate(std::size_t size) {
  const std::size_t wanted = RoundUp(size + kCellHeader, kCellUnit);
  const auto found = free_.lower_bound(wanted);
  if (found == free_.end()) {
    return AppendBin(wanted);
  }
  const auto [available, cell] = *found;
  free_.erase(found);
  return TakeFrom(cell, available, wanted);
}

HiveFile::Cell HiveFile::AppendBin(std::size_t cellSize) {
  const std::size_t bin = bytes_.size();
  const std::size_t size = RoundUp(cellSize + kBinHeader, kBinUnit);
  if (size > kLargestHive || bin + size > kLargestHive) {
    throw std::length_error("hive");
  }
  bytes_.resize(bin + size);
  std::memcpy(&bytes_[bin], "hbin", 4);
  Store(&bytes_[bin + kBinOffset], static_cast<std::uint32_t>(bin - kBaseSize));
  Store(&bytes_[bin + kBinSize], static_cast<std::uint32_t>(size));
  Store(&bytes_[bin + kBinWritten], FileTime());
  Store(&bytes_[kDataSize], static_cast<std::uint32_t>(bytes_.size() - kBaseSize));
  return TakeFrom(static_cast<Cell>(bin + kBinHeader - kBaseSize), size - kBinHeader, cellSize);
}

// Makes a cell of the first `wanted` bytes of a free one; its content is zeros.
HiveFile::Cell HiveFile::TakeFrom(Cell cell, std::size_t available, std::size_t wanted) {
  std::byte* start = Payload(cell) - kCellHeader;
  if (available > wanted) {
    Store(start + wanted, static_cast<std::int32_t>(available - wanted));
    free_.emplace(available - wanted, static_cast<Cell>(cell + wanted));
  }
  std::fill_n(start, wanted, std::byte());
  Store(start, -static_cast<std::int32_t>(wanted));
  return cell;
}

void HiveFile::Free(Cell cell) {
  if (const View view = At(cell)) {
    const std::size_t size = view.Size() + kCellHeader;
    Store(Payload(cell) - kCellHeader, static_cast<std::int32_t>(size));
    free_.emplace(size, cell);
  }
}

}  // namespace platform::posix
