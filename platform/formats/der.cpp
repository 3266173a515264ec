#include "platform/formats/der.h"

#include <algorithm>
#include <vector>

namespace platform {
namespace {

constexpr std::uint8_t kConstructed = 0x20;
constexpr std::uint8_t kTagNumber = 0x1F;
constexpr std::uint8_t kLongLength = 0x80;

struct Header {
  DerTag tag;
  std::size_t size;  // of the header itself
  std::size_t length;
};

// The header that `bytes` begins with; nothing when there is none.
std::optional<Header> ReadHeader(Der bytes) {
  constexpr std::size_t kMostLengthBytes = 4;
  if (bytes.size() < 2) {
    return std::nullopt;
  }
  const auto tag = std::to_integer<std::uint8_t>(bytes[0]);
  Header header{DerTag{tag}, 2, std::to_integer<std::uint8_t>(bytes[1])};
  if ((tag & kTagNumber) == kTagNumber) {
    return std::nullopt;
  }
  if (header.length >= kLongLength) {
    const std::size_t count = header.length - kLongLength;
    if (count == 0 || count > kMostLengthBytes || count > bytes.size() - header.size) {
      return std::nullopt;
    }
    header.length = 0;
    for (const std::byte byte : bytes.subspan(header.size, count)) {
      header.length = header.length << 8 | std::to_integer<std::size_t>(byte);
    }
    header.size += count;
    // Only the shortest form counts (X.690, 10.1).
    if (header.length < kLongLength || header.length >> (8 * (count - 1)) == 0) {
      return std::nullopt;
    }
  }
  return header;
}

// The element that `bytes` begins with; nothing when there is none.
std::optional<DerElement> First(Der bytes) {
  const std::optional<Header> header = ReadHeader(bytes);
  if (!header || header->length > bytes.size() - header->size) {
    return std::nullopt;
  }
  return DerElement{header->tag, bytes.subspan(header->size, header->length),
                    bytes.first(header->size + header->length)};
}

}  // namespace

void DerReader::Fail() {
  rest_ = {};
  good_ = false;
}

DerElement DerReader::Take() {
  const std::optional<DerElement> element = First(rest_);
  if (!element) {
    Fail();
    return {};
  }
  rest_ = rest_.subspan(element->whole.size());
  return *element;
}

DerElement DerReader::Take(DerTag tag) {
  const DerElement element = Take();
  if (element.tag != tag) {
    Fail();
    return {};
  }
  return element;
}

std::optional<DerElement> DerReader::TakeIf(DerTag tag) {
  if (rest_.empty() || DerTag{std::to_integer<std::uint8_t>(rest_[0])} != tag) {
    return std::nullopt;
  }
  const DerElement element = Take();
  return good_ ? std::optional(element) : std::nullopt;
}

std::optional<std::uint64_t> SequenceSize(Der beginning) {
  const std::optional<Header> header = ReadHeader(beginning);
  return header && header->tag == DerTag::Sequence
             ? std::optional(std::uint64_t{header->size} + header->length)
             : std::nullopt;
}

bool IsDer(Der bytes) {
  constexpr std::size_t kMostLevels = 64;
  const std::optional<DerElement> outer = First(bytes);
  if (!outer) {
    return false;
  }
  std::vector<Der> levels = {outer->whole};  // what is left at each level
  while (!levels.empty()) {
    if (levels.back().empty()) {
      levels.pop_back();
      continue;
    }
    const std::optional<DerElement> element = First(levels.back());
    if (!element) {
      return false;
    }
    levels.back() = levels.back().subspan(element->whole.size());
    if ((static_cast<std::uint8_t>(element->tag) & kConstructed) != 0) {
      if (levels.size() == kMostLevels) {
        return false;
      }
      levels.push_back(element->value);
    }
  }
  return true;
}

bool IsSorted(Der elements) {
  DerReader reader(elements);
  Der last;
  while (!reader.AtEnd()) {
    const Der next = reader.Take().whole;
    if (!reader.IsGood() || std::ranges::lexicographical_compare(next, last)) {
      return false;
    }
    last = next;
  }
  return reader.IsGood();
}

bool AreEqual(Der left, Der right) { return std::ranges::equal(left, right); }

}  // namespace platform
