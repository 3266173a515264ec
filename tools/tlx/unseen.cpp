#include "tools/tlx/unseen.h"

namespace tlx {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Controls, and what Unicode has as format characters: soft hyphen, marks and overrides of
// direction, joiners, separators of lines, invisible operators, annotations, tags.
constexpr Range kUnseen[] = {
    {0x00, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},
    {0x61C, 0x61C},   {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},
    {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

}  // namespace

bool IsUnseen(char32_t character) {
  for (const Range& range : kUnseen) {
    if (character >= range.first && character <= range.last) {
      return true;
    }
  }
  return false;
}

char32_t TakeCharacter(cvn::StringView* text) {
  const auto isSurrogate = [text](std::size_t at, char16_t first) {
    return at < text->size() && ((*text)[at] & 0xFC00) == first;
  };
  char32_t character = text->front();
  const bool isPair = isSurrogate(0, 0xD800) && isSurrogate(1, 0xDC00);
  if (isPair) {
    character = 0x10000 + ((character & 0x3FF) << 10) + ((*text)[1] & 0x3FFU);
  }
  text->remove_prefix(isPair ? 2 : 1);
  return character;
}

}  // namespace tlx
