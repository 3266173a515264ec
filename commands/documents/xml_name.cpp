#include "commands/documents/xml_name.h"

#include <algorithm>
#include <span>

namespace tessel {
namespace {

// The characters that may begin a name, beyond ASCII; as XML 1.0 has them in its fifth edition.
struct CharacterRange {
  char32_t first;
  char32_t last;
};
constexpr CharacterRange kNameStarts[] = {{0xC0, 0xD6},     {0xD8, 0xF6},     {0xF8, 0x2FF},
                                          {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D},
                                          {0x2070, 0x218F}, {0x2C00, 0x2FEF}, {0x3001, 0xD7FF},
                                          {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF}};
// And those that may follow.
constexpr CharacterRange kNameParts[] = {{0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

bool IsIn(std::span<const CharacterRange> ranges, char32_t c) {
  return std::ranges::any_of(
      ranges, [c](const CharacterRange& range) { return c >= range.first && c <= range.last; });
}

}  // namespace

bool StartsXmlName(char c) {
  return static_cast<unsigned char>(c) >= 127 || c == '_' || (c >= 'a' && c <= 'z') ||
         (c >= 'A' && c <= 'Z');
}

bool IsInXmlName(char c) {
  return StartsXmlName(c) || (c >= '0' && c <= '9') || c == '-' || c == '.' || c == ':';
}

bool IsXmlName(cvn::StringView name) {
  for (std::size_t at = 0; at < name.size(); ++at) {
    char32_t c = name[at];
    if ((c & 0xFC00) == 0xD800 && at + 1 < name.size() && (name[at + 1] & 0xFC00) == 0xDC00) {
      c = 0x10000 + ((c - 0xD800) << 10) + (name[++at] - 0xDC00U);
    }
    const bool isAscii = c < 0x7F;
    const bool starts = isAscii ? StartsXmlName(static_cast<char>(c)) : IsIn(kNameStarts, c);
    const bool follows = isAscii ? IsInXmlName(static_cast<char>(c)) : IsIn(kNameParts, c);
    if (!starts && (at == 0 || !follows)) {
      return false;
    }
  }
  return !name.empty();
}

}  // namespace tessel
