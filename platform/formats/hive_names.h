// Names as a hive stores them: a byte a character where all of them are Latin-1, else UTF-16.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/formats/hive_format.h"

namespace platform::posix {

struct StoredName {
  std::span<const std::byte> bytes;
  bool isNarrow = false;

  std::size_t Length() const { return isNarrow ? bytes.size() : bytes.size() / sizeof(char16_t); }
  char16_t operator[](std::size_t i) const;
  std::u16string Text() const;
};

StoredName NameOfKey(HiveView key);
StoredName NameOfValue(HiveView value);

bool IsNarrow(std::u16string_view name);
std::size_t StoredSize(std::u16string_view name);
void StoreName(std::u16string_view name, std::byte* to);

// Compares a folded name with a stored one, in the order of lists of subkeys.
std::strong_ordering CompareNames(std::u16string_view folded, const StoredName& name);

// What a hash leaf has of a name, and what a fast leaf has of it.
std::uint32_t HashOf(std::u16string_view folded);
std::uint32_t HintOf(std::u16string_view name);

}  // namespace platform::posix
