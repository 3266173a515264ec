#include "commands/system/registry_values.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include "platform/environment.h"
#include "support/format.h"
#include "support/numbers.h"

namespace tessel {
namespace {

namespace registry = platform::registry;
using platform::Code;
using platform::kSuccess;

static_assert(std::endian::native == std::endian::little, "values are stored as memory has them");

// The number at the start of stored bytes, which are at least as many.
template <typename Int>
Int NumberIn(const RegistryBytes& data) {
  Int number = 0;
  std::memcpy(&number, data.data(), sizeof(number));
  return number;
}

template <typename Int>
void StoreNumber(Int number, RegistryBytes* data) {
  data->resize(sizeof(number));
  std::memcpy(data->data(), &number, sizeof(number));
}

std::optional<std::byte> HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') {
    return static_cast<std::byte>(c - u'0');
  }
  const char16_t lower = c | 0x20;
  if (lower >= u'a' && lower <= u'f') {
    return static_cast<std::byte>(lower - u'a' + 10);
  }
  return std::nullopt;
}

// The strings of a list up to the first empty one, with bars between them.
cvn::String JoinedStrings(cvn::StringView list) {
  cvn::String joined;
  while (!list.empty() && list.front() != u'\0') {
    const cvn::StringView one = list.substr(0, list.find(u'\0'));
    joined.Append(one);
    joined.Append(u'|');
    list.remove_prefix(std::min(one.size() + 1, list.size()));
  }
  joined.Truncate(joined.AsView().find_last_not_of(u'|') + 1);
  return joined;
}

void StoreText(cvn::StringView text, std::size_t zeros, RegistryBytes* data) {
  std::u16string ended(text);
  ended.append(zeros, u'\0');
  data->resize(ended.size() * sizeof(char16_t));
  std::memcpy(data->data(), ended.data(), data->size());
}

void StoreStrings(cvn::StringView text, RegistryBytes* data) {
  std::u16string list(text);
  std::replace(list.begin(), list.end(), u'|', u'\0');
  StoreText(list, list.empty() ? 1 : 2, data);
}

// An odd last digit counts for nothing.
Code StoreHex(cvn::StringView text, RegistryBytes* data) {
  data->reserve(text.size() / 2);
  for (; text.size() >= 2; text.remove_prefix(2)) {
    const std::optional<std::byte> high = HexDigit(text[0]);
    const std::optional<std::byte> low = HexDigit(text[1]);
    if (!high || !low) {
      return platform::kBufferOverflow;
    }
    data->push_back((*high << 4) | *low);
  }
  return kSuccess;
}

}  // namespace

Code TextOfValue(std::uint32_t type, RegistryBytes data, std::optional<cvn::String>* text) {
  const std::size_t size = data.size();
  // Ends texts that were stored without their zero, and fills up short numbers.
  data.resize(std::max(size + 4, sizeof(std::int64_t)));
  std::u16string characters(data.size() / sizeof(char16_t), u'\0');
  std::memcpy(characters.data(), data.data(), characters.size() * sizeof(char16_t));
  const cvn::StringView first = cvn::StringView(characters).substr(0, characters.find(u'\0'));
  switch (type) {
    case registry::kTypeString:
      *text = first;
      return kSuccess;
    case registry::kTypeExpandString:
      *text = platform::environment::Expand(first);
      return text->has_value() ? kSuccess : platform::LastError();
    case registry::kTypeDword:
      *text = cvn::Format(u"%d", NumberIn<std::int32_t>(data));
      return kSuccess;
    case registry::kTypeQword:
      *text = cvn::Format(u"%lld", NumberIn<std::int64_t>(data));
      return kSuccess;
    case registry::kTypeMultiString:
      *text = JoinedStrings(characters);
      return kSuccess;
    case registry::kTypeBinary:
      *text = cvn::HexText(std::span(data).first(size));
      return platform::kUnsupportedType;
    default:
      return platform::kUnsupportedType;
  }
}

Code BytesOfText(std::uint32_t type, cvn::StringView text, RegistryBytes* data) {
  switch (type) {
    case registry::kTypeString:
    case registry::kTypeExpandString:
      StoreText(text, 1, data);
      return kSuccess;
    case registry::kTypeDword:
      StoreNumber(cvn::ReadInt32(text), data);
      return kSuccess;
    case registry::kTypeQword:
      StoreNumber(cvn::ReadInt64(text), data);
      return kSuccess;
    case registry::kTypeMultiString:
      StoreStrings(text, data);
      return kSuccess;
    case registry::kTypeBinary:
      return StoreHex(text, data);
    default:
      return platform::kUnsupportedType;
  }
}

}  // namespace tessel
