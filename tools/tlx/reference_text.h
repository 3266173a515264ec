// What the language's reference says beside the declarations of commands and loops.
#pragma once

#include "support/string.h"

namespace tlx {

// Markdown, each ending with a line feed: the language as a whole, from the page's title on, and
// what holds for all loops.
extern const cvn::StringView kReferenceIntroduction;
extern const cvn::StringView kLoopsIntroduction;

}  // namespace tlx
