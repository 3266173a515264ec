// The reference of the language of scripts.
#pragma once

#include "support/string.h"

namespace tlx {

// Sets `text` to the reference, a page in Markdown, with an example for each command when
// `examples` names their folder. On failure tells the user. Returns the exit code.
int LanguageReference(cvn::StringView examples, cvn::String* text);

}  // namespace tlx
