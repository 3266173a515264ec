// A registry hive, edited in place: the format that Windows calls regf, versions 1.3 to 1.6.
//
// A hive consists of cells that refer to each other by their offsets. Reading looks at the cells it
// needs and no others; a change writes the cells and lists it concerns, and all else stays as it
// is. Nothing in a hive is trusted: what doesn't fit the format gives 1009, and every walk ends
// after as many steps as the hive has room for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/error.h"
#include "platform/formats/hive_cells.h"

namespace platform::posix {

// What is wrong in a hive.
struct HiveFault {
  std::uint32_t offset = 0;  // from the start of the file
  const char* what = "";     // a few English words
  bool isHarmless = false;   // space that nothing uses: Windows leaves some as well
};

class HiveImage {
 public:
  // A cell's offset, counted from the first bin.
  using Cell = std::uint32_t;
  static constexpr Cell kNoCell = 0xFFFFFFFF;

  static constexpr std::size_t kLongestKeyName = 255;  // all in UTF-16 units
  static constexpr std::size_t kLongestClassName = 32767;
  static constexpr std::size_t kLongestValueName = 16383;
  static constexpr std::size_t kDeepestKey = 512;  // levels, the root's among them; Windows' limit

  struct KeyRecord {
    std::u16string name;  // may be empty, or hold zeros, in what others have written
    std::u16string className;
    std::uint16_t flags = 0;      // kKey..., below
    std::uint64_t writeTime = 0;  // 100 ns since 1601
    Cell parent = kNoCell;        // without meaning in the root
    Cell security = kNoCell;
    std::uint32_t subKeys = 0;
    std::uint32_t values = 0;
    std::uint32_t longestName = 0;  // of subkeys, in bytes of UTF-16
    std::uint32_t longestClass = 0;
    std::uint32_t longestValueName = 0;
    std::uint32_t longestData = 0;  // of values, in bytes
  };
  struct ValueRecord {
    std::u16string name;
    std::uint32_t type = 0;
    std::uint32_t size = 0;  // of its data, in bytes
    Cell cell = kNoCell;
  };

  static constexpr std::uint16_t kKeyIsRoot = 0x0004;
  static constexpr std::uint16_t kKeyIsFixed = 0x0008;  // may not be deleted
  static constexpr std::uint16_t kKeyIsLink = 0x0010;

  // Who may read a new hive's keys. Administrators and SYSTEM may do all.
  enum class Readers { All, Privileged };

  // The bytes of a hive with a root and no other key, version 1.5, both sequence numbers 1.
  // `fileName` is kept in its base block. Throws std::bad_alloc.
  static std::vector<std::byte> Empty(std::u16string_view fileName, Readers readers,
                                      std::uint64_t time);

  // `bytes` has to outlive this. Nothing is read before Open.
  explicit HiveImage(HiveBytes* bytes) : cells_(bytes) {}

  // Looks at the base block and the root. Also to be called whenever others have changed the bytes.
  // It doesn't look at the sum and the sequence numbers, which belong to who keeps the log.
  Code Open();

  // All below need a successful Open. Keys are given by cells that these functions gave.

  Cell Root() const { return root_; }
  std::uint32_t MinorVersion() const { return minorVersion_; }
  std::uint32_t DataSize() const { return cells_.DataSize(); }  // of all bins

  Code Read(Cell key, KeyRecord* record) const;
  // `parent` may be null; without meaning in the root.
  Code ReadName(Cell key, std::u16string* name, Cell* parent) const;
  // The security descriptor of a key, self-relative; empty for one that has none.
  Code ReadSecurity(Cell key, std::vector<std::byte>* descriptor) const;
  // 2 when there is none. A key that names another key as its parent is damage: so no way down from
  // the root meets a key twice.
  Code FindSubKey(Cell key, std::u16string_view name, Cell* found) const;
  // In the order of their names; 259 at the end. One after the other takes constant time each.
  Code SubKeyAt(Cell key, std::uint32_t index, Cell* found) const;
  Code ListSubKeys(Cell key, std::vector<Cell>* subKeys) const;
  // 2 when there is none.
  Code FindValue(Cell key, std::u16string_view name, ValueRecord* found) const;
  // In the order in which they were added; 259 at the end.
  Code ValueAt(Cell key, std::uint32_t index, ValueRecord* found) const;
  Code ReadData(Cell value, std::vector<std::byte>* data) const;

  // Appends the cells that are a key's: its own, those of its lists and class, of its values and
  // their data. What is damaged has none.
  void ListCells(Cell key, std::vector<Cell>* cells) const;
  // Lists the cells in use of either image that aren't in the other, byte by byte and in the same
  // place. It costs no more than a look at the bytes where few differ. Of security it lists none: a
  // key whose security is another has another cell itself. 1009 for a damaged bin, and where one
  // descriptor has taken the place of another, so that this can't be said.
  static Code ListDifferentCells(const HiveImage& before, const HiveImage& after,
                                 std::vector<Cell>* inBefore, std::vector<Cell>* inAfter);

  // Changes: all or nothing. 1009 when something that would have to be changed is damaged, 112 when
  // the hive would become larger than a hive can be, 8 without memory, and what HiveBytes gives.
  // After any of these codes the bytes are what they were, but for appended bins of free space.
  // `time` becomes the time of last write of the key whose subkeys or values change. An appended
  // bin changes the size and the sum in the base block, too.

  // Adds a subkey; 183 when there is one of that name, 87 for a name that is empty, too long or has
  // a backslash. It has its parent's security. `flags` is 0 or kKeyIsLink.
  Code AddSubKey(Cell parent, std::u16string_view name, std::uint16_t flags,
                 std::u16string_view className, std::uint64_t time, Cell* added);
  // Gives a key its class, makes it a link or none, and gives it a security descriptor, which keys
  // with the same share; an empty one takes it away. 87 for a class that is too long.
  Code SetForm(Cell key, std::u16string_view className, bool isLink,
               std::span<const std::byte> descriptor, std::uint64_t time);
  // Removes a key and its values; 5 when it has subkeys, or may not be deleted.
  Code RemoveKey(Cell key, std::uint64_t time);
  // Sets a value, which keeps its place and the spelling of its name when it is there already. 87
  // for a name that is too long.
  Code SetValue(Cell key, std::u16string_view name, std::uint32_t type,
                std::span<const std::byte> data, std::uint64_t time);
  // 2 when there is none.
  Code RemoveValue(Cell key, std::u16string_view name, std::uint64_t time);

  // Reads the whole hive and appends what is wrong, up to a thousand faults. The code is 1009 when
  // one of them isn't harmless.
  Code Check(std::vector<HiveFault>* faults) const;

 private:
  class Checker;
  using View = HiveView;
  using ValueNames = std::unordered_map<std::u16string, Cell>;  // folded names, values

  // An entry in a key's list of subkeys.
  struct Place {
    Cell index = kNoCell;          // the "ri" over the leaves, if there is one
    std::uint32_t leafNumber = 0;  // in the index
    Cell leaf = kNoCell;
    std::uint32_t entry = 0;  // in the leaf
  };
  // Where SubKeyAt was, since the next call mostly asks for what follows.
  struct Stride {
    Cell key = kNoCell;
    std::uint32_t leafNumber = 0;
    std::uint32_t first = 0;  // the number of the leaf's first subkey
  };
  enum class DataForm { InRecord, Plain, Segments, Damaged };
  using SizeOf = std::function<std::size_t(std::uint32_t)>;
  // A list of `step` bytes an entry, after a header.
  struct List {
    Cell cell = kNoCell;
    std::size_t header = 0;
    std::size_t step = 0;
    std::size_t count = 0;
  };

  // Reading.
  View KeyAt(Cell cell) const;
  View SubKeyAtCell(Cell parent, Cell cell) const;
  View ValueCellAt(Cell cell) const;
  View LeafAt(Cell cell, std::uint32_t* count) const;
  View IndexAt(Cell cell) const;
  Code FindPlace(Cell key, std::u16string_view folded, Place* place, Cell* found) const;
  Code FindLeaf(Cell key, std::u16string_view folded, Place* place) const;
  Code FindInLeaf(Cell key, std::u16string_view folded, Place* place, Cell* found) const;
  Cell FindByHash(Cell key, std::u16string_view folded, Place* place) const;
  View ValueListOf(View key) const;
  Code FindValueCell(Cell key, const std::u16string& folded, Cell* found) const;
  Code FindManyValue(Cell key, View list, std::uint32_t count, const std::u16string& folded,
                     Cell* found) const;
  static void FillValue(View value, Cell cell, ValueRecord* record);
  Code ListCellsInOtherBins(const HiveImage& other, std::vector<Cell>* cells) const;
  std::size_t LargestPlainData() const;
  DataForm FormOf(View value) const;
  View SegmentsOf(View record, std::size_t size) const;
  Code ReadSegments(View record, std::size_t size, std::vector<std::byte>* data) const;

  // Changing. But for Change and End, these are steps of a change.
  template <typename Steps>
  Code Change(Steps steps) {
    cells_.Begin();
    Code code = kNotEnoughMemory;
    try {
      code = steps();
    } catch (const std::bad_alloc&) {
    }
    return End(code);
  }
  Code End(Code code);
  Code ClaimKey(Cell key);
  void PutLongest(Cell key, std::size_t field, std::size_t size);
  static std::size_t LongestOf(View key, std::size_t field);
  void Raise(Cell key, std::size_t field, std::size_t size);
  void Lower(Cell key, std::size_t field, std::size_t gone, std::uint32_t count, std::uint32_t near,
             const SizeOf& sizeOf);
  View SecurityAt(Cell cell) const;
  Code SetClass(Cell key, std::u16string_view className);
  Code SetSecurity(Cell key, std::span<const std::byte> descriptor);
  Code FindSecurity(std::span<const std::byte> descriptor, Cell* ring, Cell* found) const;
  Code AddSecurity(Cell ring, std::span<const std::byte> descriptor, Cell* added);
  Code AddUser(Cell security);
  Code RemoveUser(Cell security);
  Code MakeKey(Cell parent, std::u16string_view name, std::uint16_t flags,
               std::u16string_view className, std::uint64_t time, Cell* key);
  Code Insert(List* list, std::size_t at, std::span<const std::byte> entry, std::size_t most);
  Code Erase(const List& list, std::size_t at);
  Code MakeLeaf(std::string_view id, std::span<const std::byte> entries, Cell* leaf);
  Code EnterSubKey(Cell parent, Place place, std::u16string_view name, Cell key);
  Code SplitLeaf(Cell parent, Place* place);
  Code InsertLeaf(Cell parent, Place* place, Cell left, Cell right);
  Code PutLeaf(Cell parent, const Place& place, Cell leaf);
  Code FindEntry(Cell parent, Cell key, Place* place) const;
  Code LeaveSubKey(Cell parent, const Place& place, View subKey, std::uint64_t time);
  void LowerForSubKey(Cell parent, View subKey, const Place& place);
  Code AddValue(Cell key, std::u16string_view name, std::uint32_t type,
                std::span<const std::byte> data, Cell* value);
  Code AddData(std::span<const std::byte> data, std::uint32_t* sizeField, std::uint32_t* dataField);
  Code AddSegments(std::span<const std::byte> data, Cell* record);
  Code FreeData(View value);
  Code ReplaceValue(Cell key, Cell value, std::uint32_t type, std::span<const std::byte> data);
  void LowerForValues(Cell key, std::size_t field, std::size_t gone, std::uint32_t near);
  Code EraseValue(Cell key, Cell value);
  Code FreeValues(View key);

  HiveCells cells_;
  std::uint32_t minorVersion_ = 0;
  Cell root_ = kNoCell;
  mutable Stride stride_;
  mutable std::unordered_set<Cell> unique_;  // keys whose lists have each subkey once
  // Of keys with many values, where a search through the list would take too long.
  mutable std::unordered_map<Cell, ValueNames> valueNames_;
};

}  // namespace platform::posix
