// The cells of a hive: finding, allocating and freeing them in the hive's bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_format.h"

namespace platform::posix {

// The bytes of a hive, base block first, and how they are changed. Offsets are counted from the
// start of the file.
class HiveBytes {
 public:
  virtual ~HiveBytes() = default;

  // At least the base block and all bins. Valid until Grow.
  virtual std::span<const std::byte> Bytes() const = 0;
  // Where to write the `size` bytes at `offset`, which lie inside Bytes(). Their pages count as
  // changed from now on. Never null, and valid until Grow.
  virtual std::byte* Change(std::uint32_t offset, std::uint32_t size) = 0;
  // Appends `size` zeros, a multiple of 4096. Codes: 112, 1450, and others that a write gives.
  virtual Code Grow(std::uint32_t size) = 0;
};

// Changes come in groups of which all take effect or none: what Begin starts, Commit or Rollback
// ends. After a rollback all bytes are what they were, but for bins that were appended, which then
// are free. Space that a group frees is used again only after its end.
//
// Free cells are found bin by bin, as far as they are needed: a change of a large hive looks at the
// bins of the cells it concerns, at the last bin, and at some more when no space was found there.
class HiveCells {
 public:
  using Cell = std::uint32_t;  // the offset from the first bin

  explicit HiveCells(HiveBytes* bytes) : bytes_(bytes) {}

  std::span<const std::byte> Bytes() const { return bytes_->Bytes(); }

  // The bins are the `dataSize` bytes after the base block. Forgets what was known of them.
  void Open(std::uint32_t dataSize);
  std::uint32_t DataSize() const { return dataSize_; }

  // A cell in use. Whether one begins there, or a part of another one, isn't known.
  HiveView At(Cell cell) const;

  // The size of the bin at this offset; 0 when none can begin there.
  std::uint32_t BinSizeAt(std::uint32_t bin) const;

  void Begin();
  void Commit();
  void Rollback();

  // 1009 unless `cell` is one of the cells of its bin, and in use.
  Code Claim(Cell cell);
  // Where to write a part of the content of a cell that was claimed or allocated. Valid until the
  // next call of any of these.
  std::byte* Write(Cell cell, std::size_t at, std::size_t size);
  template <typename Number>
  void Put(Cell cell, std::size_t at, Number number) {
    Store(Write(cell, at, sizeof(number)), number);
  }
  // A cell with `content`, and room for `size` bytes at least; zeros follow the content.
  Code Allocate(std::span<const std::byte> content, std::size_t size, Cell* cell);
  // 1009 as Claim.
  Code Free(Cell cell);

 private:
  struct Bin {
    std::uint32_t size = 0;
    std::vector<bool> isCell;  // at each possible place, whether a cell in use begins there
  };
  using Bins = std::map<std::uint32_t, Bin>;  // by their offsets
  struct Saved {
    std::uint32_t offset;
    std::uint32_t size;
    std::size_t start;  // in savedBytes_
  };

  Bins::iterator KnownBinOf(Cell cell);
  Code FindBin(Cell cell, std::uint32_t* bin);
  Code FindBinByChain(Cell cell, std::uint32_t from, std::uint32_t* bin) const;
  Code LookAt(std::uint32_t bin);
  void LookForSpace(std::uint32_t size);
  bool HasSpace(std::uint32_t size) const;
  Code AppendBin(std::uint32_t cellSize);
  Cell TakeSpace(std::uint32_t size);
  void SetUse(Cell cell, bool isUsed);
  void AddSpace(Cell cell, std::uint32_t size);
  void RemoveSpace(Cell cell);
  void Release(Cell cell);
  std::byte* Change(std::uint32_t offset, std::uint32_t size);
  void PutHeader(Cell cell, std::uint32_t size, bool isUsed);
  void Forget();

  HiveBytes* bytes_;
  std::uint32_t dataSize_ = 0;

  Bins bins_;                                        // those that were looked at
  std::map<Cell, std::uint32_t> space_;              // their free cells, with their sizes
  std::set<std::pair<std::uint32_t, Cell>> bySize_;  // the same
  std::uint32_t lookedUpTo_ = 0;                     // how far the search for space has come
  bool hasLookedAtLast_ = false;

  std::vector<Saved> saved_;  // of the group
  std::vector<std::byte> savedBytes_;
  std::vector<Cell> freed_;
};

}  // namespace platform::posix
