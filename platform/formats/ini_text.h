// The text of an INI file: where its sections, keys and values are.
//
// A line that begins with '[' and has a ']' begins a section, whose name stands between the first
// and the last of them; what precedes the first section belongs to none. A line that begins with
// ';' is a comment. In any other one the key stands before the first '='. Blanks around lines,
// names, keys and values don't count, nor does the case of section names and keys. Of several
// sections, or keys in one, with the same name, the first counts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "support/string.h"

namespace platform::posix {

// The value as it stands, in its quotes if it has any. A key without '=' has none.
std::optional<cvn::StringView> FindValue(cvn::StringView text, cvn::StringView section,
                                         cvn::StringView key);

// A piece of a text to be replaced. Both its ends are the beginning or the end of a line's content.
struct Edit {
  std::size_t offset;
  std::size_t length;
  std::u16string replacement;
};

// What gives the key this value. The line of the key becomes "key=value", spelled as it is there,
// and keeps its line end; a new line ends in CR LF and follows the last line of its section that
// is not blank; a new section stands at the end of the text.
Edit EditForValue(cvn::StringView text, cvn::StringView section, cvn::StringView key,
                  cvn::StringView value);

// Where an end of an edit of `text` is in the bytes that were decoded to it, whatever their code
// page, as long as line ends are bytes of their own in it.
std::size_t ByteOffset(std::string_view bytes, cvn::StringView text, std::size_t offset);

}  // namespace platform::posix
