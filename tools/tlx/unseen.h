// Characters that nobody sees, and that could make a text look like another.
#pragma once

namespace tlx {

// Control characters but for tab and line feed, and what Unicode has as format characters:
// overrides of direction, joiners, separators of lines.
bool IsUnseen(char32_t character);

}  // namespace tlx
