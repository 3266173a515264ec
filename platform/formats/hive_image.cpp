// Opening a hive, and reading its keys.
#include "platform/formats/hive_image.h"

#include <algorithm>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {

Code HiveImage::Open() {
  stride_ = {};
  valueNames_.clear();
  unique_.clear();
  const std::span<const std::byte> bytes = cells_.Bytes();
  cells_.Open(0);
  if (bytes.size() < kBaseSize) {
    return kBadDatabase;
  }
  const View base(bytes.first(kBaseSize));
  const std::uint32_t size = base.Long(kDataSize);
  minorVersion_ = base.Long(kMinorVersion);
  if (!base.Is("regf") || base.Long(kMajorVersion) != 1 || minorVersion_ < 3 || minorVersion_ > 6 ||
      size == 0 || size % kBinUnit != 0 || size > bytes.size() - kBaseSize ||
      size > kLargestHive - kBaseSize) {
    return kBadDatabase;
  }
  cells_.Open(size);
  root_ = base.Long(kRootCell);
  return KeyAt(root_) ? kSuccess : Code(kBadDatabase);
}

HiveView HiveImage::KeyAt(Cell cell) const {
  const View key = cells_.At(cell);
  return key.Size() >= kKeyName && key.Is("nk") && kKeyName + key.Short(kKeyNameSize) <= key.Size()
             ? key
             : View();
}

HiveView HiveImage::SubKeyAtCell(Cell parent, Cell cell) const {
  const View key = KeyAt(cell);
  return key && key.Long(kKeyParent) == parent && cell != root_ ? key : View();
}

Code HiveImage::Read(Cell key, KeyRecord* record) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  record->name = NameOfKey(view).Text();
  record->flags = view.Short(kKeyFlags);
  record->writeTime = view.Quad(kKeyWritten);
  record->parent = view.Long(kKeyParent);
  record->security = view.Long(kKeySecurity);
  record->subKeys = view.Long(kKeySubKeys);
  record->values = view.Long(kKeyValues);
  record->longestName = view.Short(kKeyLongestName);
  record->longestClass = view.Long(kKeyLongestClass);
  record->longestValueName = view.Long(kKeyLongestValueName);
  record->longestData = view.Long(kKeyLongestData);
  // As to Windows, a class that can't be read is no reason not to open the key.
  const std::size_t classSize = view.Short(kKeyClassSize);
  const View className = classSize == 0 ? View() : cells_.At(view.Long(kKeyClass));
  record->className = className.Size() < classSize
                          ? std::u16string()
                          : StoredName{className.Part(0, classSize), false}.Text();
  return kSuccess;
}

HiveView HiveImage::LeafAt(Cell cell, std::uint32_t* count) const {
  const View leaf = cells_.At(cell);
  if (!leaf.Is("li") && !leaf.Is("lf") && !leaf.Is("lh")) {
    return {};
  }
  *count = leaf.Short(kListCount);
  return *count != 0 && kListEntries + *count * LeafStep(leaf) <= leaf.Size() ? leaf : View();
}

HiveView HiveImage::IndexAt(Cell cell) const {
  const View index = cells_.At(cell);
  return index.Is("ri") && index.Short(kListCount) != 0 &&
                 kListEntries + index.Short(kListCount) * kIndexStep <= index.Size()
             ? index
             : View();
}

// Keys name their parent, so what a list has must not be there twice, or the ways through a damaged
// hive could be endless in number.
Code HiveImage::ListSubKeys(Cell key, std::vector<Cell>* subKeys) const {
  subKeys->clear();
  const View view = KeyAt(key);
  if (!view || view.Long(kKeySubKeys) == 0) {
    return view ? kSuccess : Code(kBadDatabase);
  }
  const Cell list = view.Long(kKeySubKeyList);
  const View leaves = IndexAt(list);
  const std::uint32_t leafCount = leaves ? leaves.Short(kListCount) : 1;
  for (std::uint32_t i = 0; i < leafCount; ++i) {
    std::uint32_t count = 0;
    const View leaf = LeafAt(leaves ? EntryOfIndex(leaves, i) : list, &count);
    if (!leaf || subKeys->size() + count > cells_.DataSize() / kKeyName) {
      return kBadDatabase;
    }
    for (std::uint32_t entry = 0; entry < count; ++entry) {
      subKeys->push_back(EntryOf(leaf, entry));
    }
  }
  if (!unique_.contains(key)) {
    std::vector<Cell> sorted = *subKeys;
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) != sorted.end()) {
      return kBadDatabase;
    }
    unique_.insert(key);
  }
  return kSuccess;
}

Code HiveImage::SubKeyAt(Cell key, std::uint32_t index, Cell* found) const {
  const View view = KeyAt(key);
  if (!view || view.Long(kKeySubKeys) == 0) {
    return view ? kNoMoreItems : kBadDatabase;
  }
  if (std::vector<Cell> all; !unique_.contains(key) && ListSubKeys(key, &all) != kSuccess) {
    return kBadDatabase;
  }
  const Cell list = view.Long(kKeySubKeyList);
  const View leaves = IndexAt(list);
  const std::uint32_t leafCount = leaves ? leaves.Short(kListCount) : 1;
  if (stride_.key != key || index < stride_.first) {
    stride_ = {key, 0, 0};
  }
  for (; stride_.leafNumber < leafCount; ++stride_.leafNumber) {
    std::uint32_t count = 0;
    const View leaf = LeafAt(leaves ? EntryOfIndex(leaves, stride_.leafNumber) : list, &count);
    if (!leaf) {
      return kBadDatabase;
    }
    if (index - stride_.first < count) {
      *found = EntryOf(leaf, index - stride_.first);
      return SubKeyAtCell(key, *found) ? kSuccess : Code(kBadDatabase);
    }
    stride_.first += count;
  }
  stride_ = {};
  return kNoMoreItems;
}

Code HiveImage::FindSubKey(Cell key, std::u16string_view name, Cell* found) const {
  Place place;
  return FindPlace(key, Folded(name), &place, found);
}

// The place where the name is or, when the code is 2, where it would be.
Code HiveImage::FindPlace(Cell key, std::u16string_view folded, Place* place, Cell* found) const {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  *place = {};
  if (view.Long(kKeySubKeys) == 0) {
    return kFileNotFound;
  }
  const Code code = FindLeaf(key, folded, place);
  return code == kSuccess ? FindInLeaf(key, folded, place, found) : code;
}

// The first leaf whose last name isn't before `folded`, or the last one.
Code HiveImage::FindLeaf(Cell key, std::u16string_view folded, Place* place) const {
  const Cell list = KeyAt(key).Long(kKeySubKeyList);
  const View leaves = IndexAt(list);
  if (!leaves) {
    place->leaf = list;
    return kSuccess;
  }
  std::uint32_t low = 0;
  std::uint32_t high = leaves.Short(kListCount) - 1U;
  while (low < high) {
    const std::uint32_t middle = (low + high) / 2;
    std::uint32_t count = 0;
    const View leaf = LeafAt(EntryOfIndex(leaves, middle), &count);
    const View last = leaf ? SubKeyAtCell(key, EntryOf(leaf, count - 1)) : View();
    if (!last) {
      return kBadDatabase;
    }
    if (std::is_gt(CompareNames(folded, NameOfKey(last)))) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  *place = {list, low, EntryOfIndex(leaves, low), 0};
  return kSuccess;
}

Code HiveImage::FindInLeaf(Cell key, std::u16string_view folded, Place* place, Cell* found) const {
  std::uint32_t count = 0;
  const View leaf = LeafAt(place->leaf, &count);
  if (!leaf) {
    return kBadDatabase;
  }
  std::uint32_t low = 0;
  std::uint32_t high = count;
  while (low < high) {
    const std::uint32_t middle = (low + high) / 2;
    const Cell cell = EntryOf(leaf, middle);
    const View subKey = SubKeyAtCell(key, cell);
    if (!subKey) {
      return kBadDatabase;
    }
    const auto order = CompareNames(folded, NameOfKey(subKey));
    if (std::is_eq(order)) {
      *found = cell;
      place->entry = middle;
      return kSuccess;
    }
    (std::is_gt(order) ? low : high) = std::is_gt(order) ? middle + 1 : middle;
  }
  place->entry = low;
  *found = FindByHash(key, folded, place);
  return *found == kNoCell ? Code(kFileNotFound) : kSuccess;
}

// Other programs sort by rules of their own. As long as the hashes stand in one leaf, such a key is
// still found.
HiveImage::Cell HiveImage::FindByHash(Cell key, std::u16string_view folded, Place* place) const {
  std::uint32_t count = 0;
  const View leaf = LeafAt(place->leaf, &count);
  if (place->index != kNoCell || !leaf.Is("lh")) {
    return kNoCell;
  }
  const std::uint32_t hash = HashOf(folded);
  for (std::uint32_t i = 0; i < count; ++i) {
    if (leaf.Long(kListEntries + i * kLeafStep + kIndexStep) != hash) {
      continue;
    }
    const Cell cell = EntryOf(leaf, i);
    const View subKey = SubKeyAtCell(key, cell);
    if (subKey && std::is_eq(CompareNames(folded, NameOfKey(subKey)))) {
      place->entry = i;
      return cell;
    }
  }
  return kNoCell;
}

}  // namespace platform::posix
