// The sections of the language's reference, and what they say beside the commands' descriptions.
#pragma once

#include <span>

#include "support/string.h"

namespace tlx {

struct ReferenceSection {
  cvn::StringView title;
  std::span<const cvn::StringView> commands;  // and loops, by name, in the order of the page
  // Markdown: what holds for all of them. Ends with a line feed.
  cvn::StringView introduction;
  // The file that the examples open, if they share one, by its name in the examples' folder
  // "files".
  cvn::StringView sample = {};
};

// Markdown: the language as a whole, from the page's title on. Ends with a line feed.
extern const cvn::StringView kReferenceIntroduction;

// In the order of the page.
std::span<const ReferenceSection> ReferenceSections();

}  // namespace tlx
