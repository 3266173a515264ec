// How pages look, and what they do by themselves.
#pragma once

#include <string_view>

namespace tlx {

// The text of the element 'style': for screens in light and dark, wide and narrow, and for print.
extern const std::string_view kPageStyle;
// The text of the element 'script'. Without it a page shows all that it has.
extern const std::string_view kPageScript;

}  // namespace tlx
