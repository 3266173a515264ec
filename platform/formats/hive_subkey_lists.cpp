// Changing the lists of a hive's subkeys: a leaf or, above as many entries as fit into one bin, an
// index of leaves.
//
// Version 1.5 has hash leaves. Before it there are fast leaves, and leaves of offsets alone below
// an index. A leaf that is there stays of its kind.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {
namespace {

// How many more entries a list that has grown to `count` has room for, so that a long one isn't
// copied for each.
std::size_t SpareEntries(std::size_t count) { return count < 16 ? 0 : count / 4; }

// The entry for a key in a leaf of the kind `id`.
std::vector<std::byte> EntryFor(std::string_view id, HiveImage::Cell key,
                                std::u16string_view name) {
  std::vector<std::byte> entry(id == "li" ? kIndexStep : kLeafStep);
  Store(entry.data(), key);
  if (id == "lh") {
    Store(&entry[kIndexStep], HashOf(Folded(name)));
  } else if (id == "lf") {
    Store(&entry[kIndexStep], HintOf(name));
  }
  return entry;
}

}  // namespace

// Puts `entry` at the place `at`. The list may move; it never has room for more than `most`.
Code HiveImage::Insert(List* list, std::size_t at, std::span<const std::byte> entry,
                       std::size_t most) {
  Code code = cells_.Claim(list->cell);
  if (code != kSuccess || list->count >= most) {
    return code == kSuccess ? Code(kDiskFull) : code;
  }
  const std::size_t place = list->header + at * list->step;
  const std::size_t end = list->header + list->count * list->step;
  const View view = cells_.At(list->cell);
  if (view.Size() >= end + list->step) {
    std::byte* to = cells_.Write(list->cell, place, end - place + list->step);
    std::memmove(to + list->step, to, end - place);
    std::copy(entry.begin(), entry.end(), to);
  } else {
    const auto old = view.Part(0, end);
    std::vector<std::byte> content(old.begin(), old.end());
    content.insert(content.begin() + static_cast<std::ptrdiff_t>(place), entry.begin(),
                   entry.end());
    const std::size_t room = std::min(most, list->count + 1 + SpareEntries(list->count));
    const Cell former = list->cell;
    code = cells_.Allocate(content, list->header + room * list->step, &list->cell);
    code = code == kSuccess ? cells_.Free(former) : code;
  }
  ++list->count;
  if (code == kSuccess && list->header != 0) {
    cells_.Put(list->cell, kListCount, static_cast<std::uint16_t>(list->count));
  }
  return code;
}

Code HiveImage::Erase(const List& list, std::size_t at) {
  const Code code = cells_.Claim(list.cell);
  if (code != kSuccess) {
    return code;
  }
  const std::size_t place = list.header + at * list.step;
  const std::size_t rest = (list.count - at - 1) * list.step;
  std::byte* to = cells_.Write(list.cell, place, rest + list.step);
  std::memmove(to, to + list.step, rest);
  if (list.header != 0) {
    cells_.Put(list.cell, kListCount, static_cast<std::uint16_t>(list.count - 1));
  }
  return kSuccess;
}

Code HiveImage::MakeLeaf(std::string_view id, std::span<const std::byte> entries, Cell* leaf) {
  const std::size_t step = id == "li" ? kIndexStep : kLeafStep;
  const std::size_t count = entries.size() / step;
  std::vector<std::byte> content(kListEntries);
  std::memcpy(content.data(), id.data(), id.size());
  Store(&content[kListCount], static_cast<std::uint16_t>(count));
  content.insert(content.end(), entries.begin(), entries.end());
  return cells_.Allocate(content, kListEntries + (count + SpareEntries(count)) * step, leaf);
}

// Enters `key` into the list of `parent` at the place that FindPlace gave.
Code HiveImage::EnterSubKey(Cell parent, Place place, std::u16string_view name, Cell key) {
  if (KeyAt(parent).Long(kKeySubKeys) == 0) {
    const std::string_view id = minorVersion_ >= 5 ? "lh" : "lf";
    Cell leaf = kNoCell;
    const Code code = MakeLeaf(id, EntryFor(id, key, name), &leaf);
    if (code == kSuccess) {
      cells_.Put(parent, kKeySubKeyList, leaf);
    }
    return code;
  }
  std::uint32_t count = 0;
  View leaf = LeafAt(place.leaf, &count);
  Code code = kSuccess;
  if (count >= kLargestLeafSize / LeafStep(leaf)) {
    code = SplitLeaf(parent, &place);
    if (code != kSuccess) {
      return code;
    }
    leaf = LeafAt(place.leaf, &count);
  }
  const std::string_view id = leaf.Is("lh") ? "lh" : (leaf.Is("lf") ? "lf" : "li");
  List list{place.leaf, kListEntries, LeafStep(leaf), count};
  code = Insert(&list, place.entry, EntryFor(id, key, name), kLargestList);
  if (code == kSuccess && list.cell != place.leaf) {
    code = PutLeaf(parent, place, list.cell);
  }
  return code;
}

// Makes two leaves of one, and moves `place` along.
Code HiveImage::SplitLeaf(Cell parent, Place* place) {
  std::uint32_t count = 0;
  const View leaf = LeafAt(place->leaf, &count);
  const bool isHashed = leaf.Is("lh");
  const std::string_view id = isHashed ? "lh" : "li";
  const std::size_t step = isHashed ? kLeafStep : kIndexStep;
  std::vector<std::byte> entries;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto entry = leaf.Part(kListEntries + i * LeafStep(leaf), step);
    entries.insert(entries.end(), entry.begin(), entry.end());
  }
  const std::uint32_t half = count / 2;
  const auto both = std::span<const std::byte>(entries);
  const Cell former = place->leaf;
  Cell left = former;
  Cell right = kNoCell;
  Code code = MakeLeaf(id, both.subspan(half * step), &right);
  code = code == kSuccess ? cells_.Claim(former) : code;
  if (code == kSuccess && cells_.At(former).Is(id)) {
    cells_.Put(former, kListCount, static_cast<std::uint16_t>(half));
  } else if (code == kSuccess) {
    code = MakeLeaf(id, both.first(half * step), &left);
    code = code == kSuccess ? cells_.Free(former) : code;
  }
  code = code == kSuccess ? InsertLeaf(parent, place, left, right) : code;
  if (code == kSuccess && place->entry > half) {
    place->entry -= half;
    ++place->leafNumber;
    place->leaf = right;
  }
  return code;
}

// Puts `left` in the place of a leaf, and `right` after it.
Code HiveImage::InsertLeaf(Cell parent, Place* place, Cell left, Cell right) {
  place->leaf = left;
  if (place->index == kNoCell) {
    std::byte index[kListEntries + 2 * kIndexStep] = {std::byte{'r'}, std::byte{'i'}};
    Store(index + kListCount, std::uint16_t{2});
    Store(index + kListEntries, left);
    Store(index + kListEntries + kIndexStep, right);
    const Code code = cells_.Allocate(index, 0, &place->index);
    if (code == kSuccess) {
      cells_.Put(parent, kKeySubKeyList, place->index);
    }
    return code;
  }
  List list{place->index, kListEntries, kIndexStep, IndexAt(place->index).Short(kListCount)};
  const Code code =
      Insert(&list, place->leafNumber + 1, std::as_bytes(std::span(&right, 1)), kLargestList);
  if (code != kSuccess) {
    return code;
  }
  place->index = list.cell;
  cells_.Put(parent, kKeySubKeyList, list.cell);
  return PutLeaf(parent, *place, left);
}

Code HiveImage::PutLeaf(Cell parent, const Place& place, Cell leaf) {
  if (place.index == kNoCell) {
    cells_.Put(parent, kKeySubKeyList, leaf);
    return kSuccess;
  }
  const Code code = cells_.Claim(place.index);
  if (code == kSuccess) {
    cells_.Put(place.index, kListEntries + place.leafNumber * kIndexStep, leaf);
  }
  return code;
}

// Where the list of `parent` has `key`.
Code HiveImage::FindEntry(Cell parent, Cell key, Place* place) const {
  Cell found = kNoCell;
  const Code code = FindPlace(parent, Folded(NameOfKey(KeyAt(key)).Text()), place, &found);
  if (code == kSuccess && found == key) {
    return kSuccess;
  }
  std::vector<Cell> subKeys;  // the list isn't in order, or has the name twice
  if (ListSubKeys(parent, &subKeys) != kSuccess) {
    return kBadDatabase;
  }
  const auto entry = std::find(subKeys.begin(), subKeys.end(), key);
  auto number = static_cast<std::uint32_t>(entry - subKeys.begin());
  const Cell list = KeyAt(parent).Long(kKeySubKeyList);
  const View leaves = IndexAt(list);
  *place = {leaves ? list : kNoCell, 0, leaves ? EntryOfIndex(leaves, 0) : list, 0};
  std::uint32_t count = 0;
  while (entry != subKeys.end() && LeafAt(place->leaf, &count) && number >= count) {
    number -= count;
    place->leaf = EntryOfIndex(leaves, ++place->leafNumber);
  }
  place->entry = number;
  return entry == subKeys.end() ? Code(kBadDatabase) : kSuccess;
}

// Takes `subKey` out of the list of `parent`, and what `parent` says of its subkeys.
Code HiveImage::LeaveSubKey(Cell parent, const Place& place, View subKey, std::uint64_t time) {
  std::uint32_t count = 0;
  const View leaf = LeafAt(place.leaf, &count);
  const std::uint32_t left = KeyAt(parent).Long(kKeySubKeys) - 1;
  const std::uint32_t leaves = place.index == kNoCell ? 1 : IndexAt(place.index).Short(kListCount);
  // The number of subkeys ends with their list.
  if ((left == 0) != (leaves == 1 && count == 1)) {
    return kBadDatabase;
  }
  Code code = kSuccess;
  if (count > 1) {
    code = Erase({place.leaf, kListEntries, LeafStep(leaf), count}, place.entry);
  } else {
    code = cells_.Free(place.leaf);
    if (code == kSuccess && leaves > 1) {
      code = Erase({place.index, kListEntries, kIndexStep, leaves}, place.leafNumber);
    } else if (code == kSuccess && place.index != kNoCell) {
      code = cells_.Free(place.index);
    }
  }
  if (code != kSuccess) {
    return code;
  }
  if (left == 0) {
    cells_.Put(parent, kKeySubKeyList, kNoCell);
  }
  cells_.Put(parent, kKeySubKeys, left);
  cells_.Put(parent, kKeyWritten, time);
  LowerForSubKey(parent, subKey, place);
  return kSuccess;
}

void HiveImage::LowerForSubKey(Cell parent, View subKey, const Place& place) {
  const std::size_t nameSize = NameOfKey(subKey).Length() * sizeof(char16_t);
  const View view = KeyAt(parent);
  if (nameSize != view.Short(kKeyLongestName) &&
      subKey.Short(kKeyClassSize) != view.Long(kKeyLongestClass)) {
    return;
  }
  // SubKeyAt goes on from here.
  const View leaves = IndexAt(view.Long(kKeySubKeyList));
  stride_ = {parent, 0, 0};
  std::uint32_t count = 0;
  while (leaves && stride_.leafNumber < place.leafNumber &&
         LeafAt(EntryOfIndex(leaves, stride_.leafNumber), &count)) {
    ++stride_.leafNumber;
    stride_.first += count;
  }
  const std::uint32_t near = stride_.first + place.entry;
  const auto lower = [&](std::size_t field, std::size_t gone, const auto& sizeOfView) {
    Lower(parent, field, gone, view.Long(kKeySubKeys), near, [&](std::uint32_t i) {
      Cell cell = kNoCell;
      return SubKeyAt(parent, i, &cell) == kSuccess ? sizeOfView(KeyAt(cell)) : gone;
    });
  };
  lower(kKeyLongestName, nameSize,
        [](View key) { return NameOfKey(key).Length() * sizeof(char16_t); });
  lower(kKeyLongestClass, subKey.Short(kKeyClassSize),
        [](View key) { return std::size_t{key.Short(kKeyClassSize)}; });
}

}  // namespace platform::posix
