// A file's content as a text whose lines can be compared.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "changes/content_diff.h"

namespace tessel {

// The text of a file's bytes: of UTF-8, of UTF-16 with a mark, or of the machine's code page.
// Nothing for what is no text, as it has control characters that texts don't have.
std::optional<std::string> TextOfBytes(std::string_view bytes);

// The same content, printed in one way, if it is a well-formed document of that form whose print
// isn't too long.
std::optional<std::string> CanonicalXml(std::string_view bytes);
std::optional<std::string> CanonicalJson(std::string_view text);
// Sections and keys with their values; comments and blanks don't count.
std::string CanonicalIni(std::string_view text);

}  // namespace tessel
