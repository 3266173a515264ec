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

}  // namespace tlx
