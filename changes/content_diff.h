// What differs between two versions of a file's content.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

enum class ContentForm { Binary, Text, Xml, Json, Ini };

struct DiffLine {
  // ' ', '-' and '+' as in a unified diff; '@' for the line of numbers that begins each part, "@@
  // -1,2 +1,3 @@".
  char origin = ' ';
  std::string text;  // UTF-8, without its line end
};

struct ContentDiff {
  ContentForm form = ContentForm::Binary;
  // The bytes differ and the content doesn't: the layout of a document, comments of an INI file,
  // the encoding of a text.
  bool isLayoutOnly = false;
  bool isTooLarge = false;  // to be shown line by line
  cvn::List<DiffLine> lines;
};

// The largest content whose lines are compared.
inline constexpr std::size_t kLargestDiffed = std::size_t{1} << 20;

// `path` tells an INI file by its ending. One side that isn't there has no bytes. XML, JSON and INI
// are compared by what they hold: printed anew in one way, so that layout doesn't matter; what
// isn't well-formed is text. A text is UTF-8, UTF-16 with a mark, or else in the machine's code
// page.
ContentDiff DiffContent(cvn::StringView path, const std::optional<std::string>& before,
                        const std::optional<std::string>& after);

// The line-by-line comparison of two texts in UTF-8, with three lines around each change. Nothing
// where the library fails, or there is none.
std::optional<cvn::List<DiffLine>> DiffLines(std::string_view before, std::string_view after);

}  // namespace tessel
