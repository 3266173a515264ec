// The content of a hive file: the format that Windows calls regf, versions 1.3 to 1.6.
//
// A hive file consists of cells that refer to each other by their offsets. They are read and
// changed in memory; what a change doesn't concern (security, classes, times, cells of unknown use)
// stays as it is. Nothing in a file is trusted: what doesn't fit the format gives 1009.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

class HiveFile {
 public:
  // A cell's offset from the end of the base block.
  using Cell = std::uint32_t;
  static constexpr Cell kNoCell = 0xFFFFFFFF;

  struct KeyRecord {
    std::u16string name;
    Cell parent = kNoCell;
    bool isLink = false;
  };
  struct ValueRecord {
    std::u16string name;
    std::uint32_t type = 0;
    Cell cell = kNoCell;
  };
  struct NamedKey {
    Cell cell;
    cvn::StringView name;
  };

  // Who may read a new hive's keys. Administrators and SYSTEM may do all.
  enum class Readers { All, Privileged };

  // A hive with a root and no other key. `fileName` is kept in its base block.
  static HiveFile MakeEmpty(cvn::StringView fileName, Readers readers);

  // Takes the content of a file.
  Code Load(std::vector<std::byte> content);

  std::span<const std::byte> Bytes() const { return bytes_; }
  Cell Root() const { return root_; }
  // The last writer was interrupted, and left the rest of its work in a log.
  bool IsInterrupted() const;

  Code ReadKey(Cell key, KeyRecord* record) const;
  Code ReadSubKeys(Cell key, std::vector<Cell>* subKeys) const;
  Code ReadValues(Cell key, std::vector<ValueRecord>* values) const;
  Code ReadData(Cell value, std::vector<std::byte>* data) const;

  // To come before the operations below, which rely on the chain of cells being whole. They throw
  // std::length_error when the hive would become larger than a hive can be.
  Code PrepareToChange();

  // Adds a key that no list of subkeys has yet; it has its parent's security.
  Cell AddKey(Cell parent, cvn::StringView name);
  // Frees a key with all that belongs to it but its subkeys.
  void FreeKey(Cell key);
  // Makes `subKeys`, sorted by their folded names, the subkeys of `key`.
  Code SetSubKeys(Cell key, std::span<const NamedKey> subKeys);

  // Adds a value that no key has yet.
  Cell AddValue(cvn::StringView name, std::uint32_t type, std::span<const std::byte> data);
  void FreeValue(Cell value);
  // Makes `values` the values of `key`, in this order.
  Code SetValues(Cell key, std::span<const Cell> values);

  // Numbers this state of the file, for Windows to see that it is whole.
  void Seal();

 private:
  class View;

  // Cells.
  View At(Cell cell) const;
  std::byte* Payload(Cell cell);
  bool CollectFreeCells(std::size_t bin, std::size_t end);
  Cell Allocate(std::size_t size);
  Cell AppendBin(std::size_t cellSize);
  Cell TakeFrom(Cell cell, std::size_t available, std::size_t wanted);
  void Free(Cell cell);

  // Reading.
  View KeyAt(Cell cell) const;
  View ValueAt(Cell cell) const;
  bool AreBinsWhole() const;
  std::size_t LargestPlainData() const;
  Code ReadList(Cell list, bool mayBeIndex, std::vector<Cell>* subKeys) const;
  Code ReadSegments(View record, std::size_t size, std::vector<std::byte>* data) const;

  // Writing.
  template <typename Number>
  void Put(Cell cell, std::size_t offset, Number number);
  void FreeSubKeyLists(Cell list);
  void FreeData(View value);
  Cell AddData(std::span<const std::byte> data);
  Cell AddSegments(std::span<const std::byte> data);
  Cell AddLeaf(std::span<const NamedKey> subKeys);
  void AddSecurityUser(Cell security);
  void RemoveSecurityUser(Cell security);

  std::vector<std::byte> bytes_;
  Cell root_ = kNoCell;
  std::uint32_t minorVersion_ = 0;
  bool isPrepared_ = false;
  std::multimap<std::size_t, Cell> free_;  // by size
};

}  // namespace platform::posix
