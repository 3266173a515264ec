// The bins of a hive, in which its cells are.
#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/formats/hive_cells.h"

namespace platform::posix {
namespace {

constexpr auto kUnit = static_cast<std::uint32_t>(kBinUnit);
constexpr auto kHeader = static_cast<std::uint32_t>(kBinHeader);

// How far before a cell the start of its bin is looked for. Larger bins are rare; they are found
// through the chain of bins.
constexpr std::uint32_t kReach = 64 * kUnit;

// How much a search for space looks at before the hive grows instead.
constexpr std::uint32_t kSearch = 64 * kUnit;

}  // namespace

std::uint32_t HiveCells::BinSizeAt(std::uint32_t bin) const {
  if (bin >= dataSize_) {
    return 0;
  }
  const HiveView header(Bytes().subspan(kBaseSize + bin, kBinHeader));
  const std::uint32_t size = header.Long(kBinSize);
  return header.Is("hbin") && header.Long(kBinOffset) == bin && size % kUnit == 0 &&
                 size <= dataSize_ - bin
             ? size
             : 0;
}

HiveCells::Bins::iterator HiveCells::KnownBinOf(Cell cell) {
  const auto after = bins_.upper_bound(cell);
  if (after == bins_.begin()) {
    return bins_.end();
  }
  const auto bin = std::prev(after);
  return cell - bin->first < bin->second.size ? bin : bins_.end();
}

// The content of a value can look like the start of a bin. When two places claim the cell, the
// chain of bins tells which of them is one.
Code HiveCells::FindBin(Cell cell, std::uint32_t* bin) {
  const auto after = bins_.upper_bound(cell);
  std::uint32_t chain = 0;  // where a bin is known to begin, at or before the cell's
  if (after != bins_.begin()) {
    chain = std::prev(after)->first + std::prev(after)->second.size;
  }
  const std::uint32_t page = cell / kUnit * kUnit;
  const std::uint32_t first = std::max(chain, page < kReach ? 0 : page - kReach);
  int claims = 0;
  for (std::uint32_t at = first; at <= page; at += kUnit) {
    if (const std::uint32_t size = BinSizeAt(at); size != 0 && cell - at < size) {
      *bin = at;
      ++claims;
    }
  }
  return claims == 1 ? kSuccess : FindBinByChain(cell, chain, bin);
}

Code HiveCells::FindBinByChain(Cell cell, std::uint32_t from, std::uint32_t* bin) const {
  for (std::uint32_t at = from; at <= cell;) {
    const std::uint32_t size = BinSizeAt(at);
    if (size == 0) {
      return kBadDatabase;
    }
    if (cell - at < size) {
      *bin = at;
      return kSuccess;
    }
    at += size;
  }
  return kBadDatabase;
}

// Finds the bin's cells, 1009 when they don't fill it.
Code HiveCells::LookAt(std::uint32_t bin) {
  const std::uint32_t size = BinSizeAt(bin);
  if (size == 0) {
    return kBadDatabase;
  }
  Bin looked{size, std::vector<bool>(size / kCellUnit)};
  std::vector<std::pair<Cell, std::uint32_t>> space;
  for (std::uint32_t at = kHeader; at < size;) {
    const std::int64_t header = Fetch<std::int32_t>(&Bytes()[kBaseSize + bin + at]);
    const auto cellSize = static_cast<std::uint32_t>(header < 0 ? -header : header);
    if (cellSize < kCellUnit || cellSize % kCellUnit != 0 || cellSize > size - at) {
      return kBadDatabase;
    }
    if (header < 0) {
      looked.isCell[at / kCellUnit] = true;
    } else {
      space.emplace_back(bin + at, cellSize);
    }
    at += cellSize;
  }
  bins_.emplace(bin, std::move(looked));
  for (const auto& [cell, cellSize] : space) {
    AddSpace(cell, cellSize);
  }
  return kSuccess;
}

// Looks at the last bin, which an earlier change may have appended, and at some that weren't looked
// at yet, for a free cell of `size`. What is damaged has no space.
void HiveCells::LookForSpace(std::uint32_t size) {
  if (!HasSpace(size) && !hasLookedAtLast_ && dataSize_ != 0) {
    hasLookedAtLast_ = true;
    const Cell last = dataSize_ - static_cast<std::uint32_t>(kCellUnit);
    std::uint32_t bin = 0;
    if (KnownBinOf(last) == bins_.end() && FindBin(last, &bin) == kSuccess) {
      IgnoreError(LookAt(bin));
    }
  }
  for (std::uint32_t looked = 0; !HasSpace(size) && looked < kSearch;) {
    const std::uint32_t binSize = BinSizeAt(lookedUpTo_);
    if (binSize == 0) {
      return;
    }
    if (!bins_.contains(lookedUpTo_)) {
      IgnoreError(LookAt(lookedUpTo_));
      looked += binSize;
    }
    lookedUpTo_ += binSize;
  }
}

// The new bin is whole at once, with one free cell, and a rollback leaves it.
Code HiveCells::AppendBin(std::uint32_t cellSize) {
  const std::size_t size = RoundUp(std::size_t{cellSize} + kBinHeader, kBinUnit);
  const std::size_t start = kBaseSize + std::size_t{dataSize_};
  if (start + size > kLargestHive) {
    return kDiskFull;
  }
  if (const std::size_t end = Bytes().size(); end < start + size) {
    const Code code =
        bytes_->Grow(static_cast<std::uint32_t>(RoundUp(start + size - end, kBinUnit)));
    if (code != kSuccess) {
      return code;
    }
  }
  const std::uint32_t bin = dataSize_;
  const auto binSize = static_cast<std::uint32_t>(size);
  std::byte* header = bytes_->Change(static_cast<std::uint32_t>(start), kHeader);
  std::fill_n(header, kHeader, std::byte());
  std::memcpy(header, "hbin", 4);
  Store(header + kBinOffset, bin);
  Store(header + kBinSize, binSize);
  PutHeader(bin + kHeader, binSize - kHeader, false);
  dataSize_ += binSize;
  Store(bytes_->Change(kDataSize, sizeof(dataSize_)), dataSize_);
  Store(bytes_->Change(kChecksum, sizeof(std::uint32_t)), HiveChecksum(Bytes()));
  bins_.emplace(bin, Bin{binSize, std::vector<bool>(binSize / kCellUnit)});
  AddSpace(bin + kHeader, binSize - kHeader);
  return kSuccess;
}

}  // namespace platform::posix
