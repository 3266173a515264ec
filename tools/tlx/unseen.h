// Characters that nobody sees, and that could make a text look like another.
#pragma once

#include "support/string.h"

namespace tlx {

// Control characters but for tab and line feed, and what Unicode has as format characters:
// overrides of direction, joiners, separators of lines.
bool IsUnseen(char32_t character);

// Cuts the first character off a text that isn't empty, and gives it. A surrogate without its
// partner is one, too.
char32_t TakeCharacter(cvn::StringView* text);

}  // namespace tlx
