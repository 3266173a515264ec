// Splitting a command line as the runtime of a Windows program does.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/string.h"

namespace platform::posix {

// How many characters the first argument, the program, takes: quotes only switch between text in
// which blanks count and text that they end, and a backslash is nothing special.
std::size_t FirstArgumentLength(cvn::StringView commandLine);

// Appends the arguments in `text`, which is what follows the program, in the host's bytes. Blanks
// and tabs part them, outside of quotes. 2n backslashes before a quote are n, and the quote
// switches; 2n + 1 are n and a quote that is text; elsewhere each is itself. Inside quotes two
// quotes are one that is text.
void AppendArguments(cvn::StringView text, std::vector<std::string>* arguments);

}  // namespace platform::posix
