#include "platform/formats/hive_cells.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace platform::posix {
void HiveCells::Open(std::uint32_t dataSize) {
  dataSize_ = dataSize;
  Forget();
  Begin();
}

void HiveCells::Forget() {
  bins_.clear();
  space_.clear();
  bySize_.clear();
  lookedUpTo_ = 0;
  hasLookedAtLast_ = false;
}

HiveView HiveCells::At(Cell cell) const {
  if (cell % kCellUnit != 0 || cell >= dataSize_) {
    return {};
  }
  const std::span<const std::byte> rest =
      Bytes().subspan(kBaseSize + cell, std::size_t{dataSize_} - cell);
  const std::int64_t size = -std::int64_t{Fetch<std::int32_t>(rest.data())};
  if (size < static_cast<std::int64_t>(kCellUnit) ||
      size % static_cast<std::int64_t>(kCellUnit) != 0 ||
      size > static_cast<std::int64_t>(rest.size())) {
    return {};
  }
  return HiveView(rest.subspan(kCellHeader, static_cast<std::size_t>(size) - kCellHeader));
}

void HiveCells::Begin() {
  saved_.clear();
  savedBytes_.clear();
  freed_.clear();
}

// Whatever happens, each freed cell is marked: only what is known of the space may be lost.
void HiveCells::Commit() {
  for (const Cell cell : freed_) {
    Release(cell);
  }
  Begin();
}

void HiveCells::Rollback() {
  const bool isChanged = !saved_.empty() || !freed_.empty();
  for (auto saved = saved_.rbegin(); saved != saved_.rend(); ++saved) {
    std::memcpy(bytes_->Change(saved->offset, saved->size), &savedBytes_[saved->start],
                saved->size);
  }
  Begin();
  if (isChanged) {
    Forget();
  }
}

std::byte* HiveCells::Change(std::uint32_t offset, std::uint32_t size) {
  const auto old = Bytes().subspan(offset, size);
  const std::size_t start = savedBytes_.size();
  savedBytes_.insert(savedBytes_.end(), old.begin(), old.end());
  saved_.push_back({offset, size, start});
  return bytes_->Change(offset, size);
}

std::byte* HiveCells::Write(Cell cell, std::size_t at, std::size_t size) {
  return Change(static_cast<std::uint32_t>(kBaseSize + cell + kCellHeader + at),
                static_cast<std::uint32_t>(size));
}

void HiveCells::PutHeader(Cell cell, std::uint32_t size, bool isUsed) {
  const auto number = static_cast<std::int32_t>(size);
  Store(bytes_->Change(static_cast<std::uint32_t>(kBaseSize + cell), kCellHeader),
        isUsed ? -number : number);
}

Code HiveCells::Claim(Cell cell) {
  if (!At(cell)) {
    return kBadDatabase;
  }
  if (KnownBinOf(cell) == bins_.end()) {
    std::uint32_t bin = 0;
    Code code = FindBin(cell, &bin);
    code = code == kSuccess ? LookAt(bin) : code;
    if (code != kSuccess) {
      return code;
    }
  }
  const auto& [start, bin] = *KnownBinOf(cell);
  return bin.isCell[(cell - start) / kCellUnit] ? kSuccess : Code(kBadDatabase);
}

Code HiveCells::Free(Cell cell) {
  const Code code = Claim(cell);
  if (code == kSuccess) {
    freed_.push_back(cell);
    SetUse(cell, false);
  }
  return code;
}

void HiveCells::Release(Cell cell) {
  auto size = static_cast<std::uint32_t>(At(cell).Size() + kCellHeader);
  PutHeader(cell, size, false);
  if (KnownBinOf(cell) == bins_.end()) {
    return;
  }
  try {
    for (auto next = space_.find(cell + size); next != space_.end();
         next = space_.find(cell + size)) {
      size += next->second;
      RemoveSpace(next->first);
    }
    for (auto next = space_.lower_bound(cell); next != space_.begin();
         next = space_.lower_bound(cell)) {
      const auto [previous, previousSize] = *std::prev(next);
      if (previous + previousSize != cell) {
        break;
      }
      RemoveSpace(previous);
      cell = previous;
      size += previousSize;
    }
    PutHeader(cell, size, false);
    AddSpace(cell, size);
  } catch (const std::bad_alloc&) {
    Forget();
  }
}

Code HiveCells::Allocate(std::span<const std::byte> content, std::size_t size, Cell* cell) {
  const std::size_t wanted = RoundUp(std::max(size, content.size()) + kCellHeader, kCellUnit);
  if (wanted > kLargestHive) {
    return kDiskFull;
  }
  const auto cellSize = static_cast<std::uint32_t>(wanted);
  LookForSpace(cellSize);
  if (!HasSpace(cellSize)) {
    const Code code = AppendBin(cellSize);
    if (code != kSuccess) {
      return code;
    }
  }
  *cell = TakeSpace(cellSize);
  std::byte* to = Write(*cell, 0, cellSize - kCellHeader);
  std::copy(content.begin(), content.end(), to);
  std::fill(to + content.size(), to + cellSize - kCellHeader, std::byte());
  return kSuccess;
}

bool HiveCells::HasSpace(std::uint32_t size) const {
  return bySize_.lower_bound({size, 0}) != bySize_.end();
}

// Takes the start of the smallest free cell that is large enough.
HiveCells::Cell HiveCells::TakeSpace(std::uint32_t size) {
  const auto [available, cell] = *bySize_.lower_bound({size, 0});
  const auto offset = static_cast<std::uint32_t>(kBaseSize + cell);
  Change(offset, kCellHeader);
  if (available > size) {
    Change(offset + size, kCellHeader);
    PutHeader(cell + size, available - size, false);
  }
  PutHeader(cell, size, true);
  SetUse(cell, true);
  RemoveSpace(cell);
  if (available > size) {
    AddSpace(cell + size, available - size);
  }
  return cell;
}

void HiveCells::SetUse(Cell cell, bool isUsed) {
  auto& [start, bin] = *KnownBinOf(cell);
  bin.isCell[(cell - start) / kCellUnit] = isUsed;
}

void HiveCells::AddSpace(Cell cell, std::uint32_t size) {
  space_.emplace(cell, size);
  bySize_.emplace(size, cell);
}

void HiveCells::RemoveSpace(Cell cell) {
  const auto found = space_.find(cell);
  bySize_.erase({found->second, cell});
  space_.erase(found);
}

}  // namespace platform::posix
