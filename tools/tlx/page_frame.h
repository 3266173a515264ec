// What all pages have: one file without anything from outside, in which no text of a patch or of a
// machine can become more than text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct PageSection {
  std::string_view id;     // ours
  std::string_view title;  // ours
  std::string body;        // HTML; headings from the third level on
};

struct PageHead {
  std::string_view kind;  // what the page is of: "Rehearsal"
  cvn::String subject;    // which: a path
  bool isGood = false;    // whether the outcome is
  std::string outcome;    // in words, UTF-8
};

// The page, in UTF-8. It has a policy by which a browser loads nothing and runs no script but the
// page's own.
std::string MakePage(const PageHead& head, const cvn::List<PageSection>& sections);

// The parts of a section's body; all of them escape what they are given.

// The bytes of a line that are shown.
inline constexpr std::size_t kLongestLine = 2000;
// One line of a text, without its end; what is too long for a page is cut, and says so.
std::string LineText(std::string_view utf8);
// The same as a piece of code: a path, a name.
std::string Code(cvn::StringView text);
std::string Code(std::string_view utf8);
// A row of a list of terms; `html` is what the term has.
std::string TermRow(std::string_view term, const std::string& html);
// "1 file", "2 files"; `noun` is ours.
std::string CountOf(std::size_t count, std::string_view noun);
// A paragraph that says that so many more were left out; nothing for 0.
std::string LeftOut(std::size_t count, std::string_view noun);
// A table's beginning, with a caption for those who don't see it, and its head; ours.
std::string TableStart(std::string_view caption, const cvn::List<std::string_view>& columns);
inline constexpr std::string_view kTableEnd = "</tbody></table>\n";

}  // namespace tlx
