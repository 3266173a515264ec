// Adding and removing the keys of a hive.
#include <algorithm>
#include <cstring>

#include "platform/formats/hive_format.h"
#include "platform/formats/hive_image.h"
#include "platform/formats/hive_names.h"
#include "platform/formats/names.h"

namespace platform::posix {

Code HiveImage::End(Code code) {
  if (code == kSuccess) {
    cells_.Commit();
  } else {
    cells_.Rollback();
    valueNames_.clear();
    unique_.clear();
  }
  stride_ = {};
  return code;
}

Code HiveImage::ClaimKey(Cell key) { return KeyAt(key) ? cells_.Claim(key) : Code(kBadDatabase); }

void HiveImage::PutLongest(Cell key, std::size_t field, std::size_t size) {
  // Flags stand in the other half of this one.
  if (field == kKeyLongestName) {
    cells_.Put(key, field, static_cast<std::uint16_t>(size));
  } else {
    cells_.Put(key, field, static_cast<std::uint32_t>(size));
  }
}

std::size_t HiveImage::LongestOf(View key, std::size_t field) {
  return field == kKeyLongestName ? key.Short(field) : key.Long(field);
}

void HiveImage::Raise(Cell key, std::size_t field, std::size_t size) {
  if (size > LongestOf(KeyAt(key), field)) {
    PutLongest(key, field, size);
  }
}

// Something of size `gone` left the `count` others, from the place `near`. Its neighbours are asked
// first: where many are as long, the search ends at once.
void HiveImage::Lower(Cell key, std::size_t field, std::size_t gone, std::uint32_t count,
                      std::uint32_t near, const SizeOf& sizeOf) {
  if (gone == 0 || gone != LongestOf(KeyAt(key), field)) {
    return;
  }
  std::size_t longest = 0;
  for (std::uint32_t i = 0; i < count && longest < gone; ++i) {
    longest = std::max(longest, sizeOf((near + i) % count));
  }
  PutLongest(key, field, std::min(longest, gone));
}

Code HiveImage::AddSubKey(Cell parent, std::u16string_view name, std::uint16_t flags,
                          std::u16string_view className, std::uint64_t time, Cell* added) {
  if (name.empty() || name.size() > kLongestKeyName ||
      name.find(u'\\') != std::u16string_view::npos || className.size() > kLongestClassName) {
    return kInvalidParameter;
  }
  return Change([&]() -> Code {
    Code code = ClaimKey(parent);
    if (code != kSuccess) {
      return code;
    }
    Place place;
    const std::u16string folded = Folded(name);
    code = FindPlace(parent, folded, &place, added);
    if (code != kFileNotFound) {
      return code == kSuccess ? Code(kAlreadyExists) : code;
    }
    code = MakeKey(parent, name, flags, className, time, added);
    if (code == kSuccess) {
      code = EnterSubKey(parent, place, name, *added);
    }
    if (code == kSuccess) {
      cells_.Put(parent, kKeySubKeys, KeyAt(parent).Long(kKeySubKeys) + 1);
      cells_.Put(parent, kKeyWritten, time);
      Raise(parent, kKeyLongestName, name.size() * sizeof(char16_t));
      Raise(parent, kKeyLongestClass, className.size() * sizeof(char16_t));
    }
    return code;
  });
}

// A key that no list has yet.
Code HiveImage::MakeKey(Cell parent, std::u16string_view name, std::uint16_t flags,
                        std::u16string_view className, std::uint64_t time, Cell* key) {
  const Cell security = KeyAt(parent).Long(kKeySecurity);
  Code code = AddUser(security);
  Cell classCell = kNoCell;
  if (code == kSuccess && !className.empty()) {
    code = cells_.Allocate(std::as_bytes(std::span(className)), 0, &classCell);
  }
  if (code != kSuccess) {
    return code;
  }
  std::vector<std::byte> node(kKeyName + StoredSize(name));
  std::memcpy(node.data(), "nk", 2);
  const std::uint16_t form = IsNarrow(name) ? kFlagNarrowName : std::uint16_t{0};
  Store(&node[kKeyFlags], static_cast<std::uint16_t>(form | flags));
  Store(&node[kKeyWritten], time);
  Store(&node[kKeyParent], parent);
  for (const std::size_t none : {kKeySubKeyList, kKeyVolatileList, kKeyValueList}) {
    Store(&node[none], kNoCell);
  }
  Store(&node[kKeySecurity], security);
  Store(&node[kKeyClass], classCell);
  Store(&node[kKeyNameSize], static_cast<std::uint16_t>(StoredSize(name)));
  Store(&node[kKeyClassSize], static_cast<std::uint16_t>(className.size() * sizeof(char16_t)));
  StoreName(name, &node[kKeyName]);
  return cells_.Allocate(node, 0, key);
}

Code HiveImage::RemoveKey(Cell key, std::uint64_t time) {
  const View view = KeyAt(key);
  if (!view) {
    return kBadDatabase;
  }
  if (key == root_ || (view.Short(kKeyFlags) & (kFlagRoot | kFlagNoDelete)) != 0 ||
      view.Long(kKeySubKeys) != 0) {
    return kAccessDenied;
  }
  const Cell parent = view.Long(kKeyParent);
  return Change([&]() -> Code {
    Place place;
    Code code = ClaimKey(parent);
    code = code == kSuccess ? FindEntry(parent, key, &place) : code;
    code = code == kSuccess ? LeaveSubKey(parent, place, view, time) : code;
    code = code == kSuccess ? FreeValues(view) : code;
    code = code == kSuccess ? RemoveUser(view.Long(kKeySecurity)) : code;
    if (code == kSuccess && view.Short(kKeyClassSize) != 0) {
      code = cells_.Free(view.Long(kKeyClass));
    }
    code = code == kSuccess ? cells_.Free(key) : code;
    valueNames_.erase(key);
    unique_.erase(key);
    return code;
  });
}

}  // namespace platform::posix
