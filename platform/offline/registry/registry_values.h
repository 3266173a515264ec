// The data of values as text or numbers, and the longest names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "platform/formats/names.h"
#include "platform/registry.h"

namespace platform::posix {

// In characters; so says the documentation of the registry's limits.
constexpr std::size_t kLongestKeyName = 255;
constexpr std::size_t kLongestValueName = 16383;

struct ValueData {
  std::uint32_t type = registry::kTypeNone;
  std::vector<std::byte> bytes;

  // The text up to its end; nothing in a value that isn't text.
  std::optional<std::u16string> Text() const {
    if (type != registry::kTypeString && type != registry::kTypeExpandString) {
      return std::nullopt;
    }
    std::u16string text(bytes.size() / sizeof(char16_t), u'\0');
    if (!text.empty()) {
      std::memcpy(text.data(), bytes.data(), text.size() * sizeof(char16_t));
    }
    return std::u16string(UpToZero(text));
  }

  std::optional<std::uint32_t> Number() const {
    std::uint32_t number = 0;
    if (type != registry::kTypeDword || bytes.size() != sizeof(number)) {
      return std::nullopt;
    }
    std::memcpy(&number, bytes.data(), sizeof(number));
    return number;
  }
};

// One without a type after a failure.
Code ReadValue(registry::Root root, cvn::StringView path, cvn::StringView name, ValueData* value);

}  // namespace platform::posix
