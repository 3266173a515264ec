// Foreign text in a page of HTML.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "support/string.h"

namespace tlx {

// The text as character data, or as the value of an attribute in double quotes: nothing in it is
// markup. What nobody sees stands as its number, "\u202E": control characters, those without width,
// and those that turn the direction of writing. Line feeds and tabs stay.
std::string Html(cvn::StringView text);
// The same for UTF-8; what is malformed becomes U+FFFD.
std::string Html(std::string_view utf8);

// A text that may be too long for a page.
struct CutText {
  std::string_view shown;
  std::size_t leftOut;  // bytes
};

// Cuts UTF-8 between characters so that at most `bytes` are shown.
CutText CutUtf8(std::string_view utf8, std::size_t bytes);

}  // namespace tlx
