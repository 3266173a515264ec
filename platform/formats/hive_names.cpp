#include "platform/formats/hive_names.h"

#include <algorithm>

#include "platform/formats/upcase.h"

namespace platform::posix {

char16_t StoredName::operator[](std::size_t i) const {
  return isNarrow ? static_cast<char16_t>(bytes[i]) : Fetch<char16_t>(&bytes[i * sizeof(char16_t)]);
}

std::u16string StoredName::Text() const {
  std::u16string text(Length(), u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    text[i] = (*this)[i];
  }
  return text;
}

StoredName NameOfKey(HiveView key) {
  return {key.Part(kKeyName, key.Short(kKeyNameSize)),
          (key.Short(kKeyFlags) & kFlagNarrowName) != 0};
}

StoredName NameOfValue(HiveView value) {
  return {value.Part(kValueName, value.Short(kValueNameSize)),
          (value.Short(kValueFlags) & kValueNarrowName) != 0};
}

bool IsNarrow(std::u16string_view name) {
  return std::all_of(name.begin(), name.end(), [](char16_t unit) { return unit < 0x100; });
}

std::size_t StoredSize(std::u16string_view name) {
  return name.size() * (IsNarrow(name) ? 1 : sizeof(char16_t));
}

void StoreName(std::u16string_view name, std::byte* to) {
  const bool isNarrow = IsNarrow(name);
  for (const char16_t unit : name) {
    if (isNarrow) {
      *to++ = static_cast<std::byte>(unit);
    } else {
      Store(to, unit);
      to += sizeof(unit);
    }
  }
}

std::strong_ordering CompareNames(std::u16string_view folded, const StoredName& name) {
  const std::size_t length = name.Length();
  for (std::size_t i = 0; i < std::min(folded.size(), length); ++i) {
    if (const auto order = folded[i] <=> UpperCase(name[i]); std::is_neq(order)) {
      return order;
    }
  }
  return folded.size() <=> length;
}

std::uint32_t HashOf(std::u16string_view folded) {
  std::uint32_t hash = 0;
  for (const char16_t unit : folded) {
    hash = hash * 37 + unit;
  }
  return hash;
}

// The first four characters; nothing when they aren't Latin-1.
std::uint32_t HintOf(std::u16string_view name) {
  name = name.substr(0, sizeof(std::uint32_t));
  std::byte hint[sizeof(std::uint32_t)] = {};
  if (IsNarrow(name)) {
    StoreName(name, hint);
  }
  return Fetch<std::uint32_t>(hint);
}

}  // namespace platform::posix
