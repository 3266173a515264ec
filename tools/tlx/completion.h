// What may stand next on a command line, for the completions of shells.
#pragma once

#include <span>
#include <string_view>

#include "support/string.h"

namespace tlx {

// Prints what the last of `words` may be, a line each: the word, a tab and its meaning, or ":files"
// or
// ":folders" where a path may stand. The first word is the program, "tlx" or "tessel"; the last one
// may be empty.
void PrintCandidates(std::span<const cvn::String> words);

// The scripts that let a shell ask for that, in UTF-8; empty for a shell that has none.
std::string_view CompletionScript(cvn::StringView shell);

}  // namespace tlx
