// The bytes of which XML is made: blanks, and names.
#pragma once

#include <string_view>

#include "support/string.h"

namespace tessel {

inline constexpr std::string_view kXmlBlanks = " \t\n\r";

constexpr bool IsXmlBlank(char c) { return kXmlBlanks.find(c) != std::string_view::npos; }

// Whether a byte of UTF-8 may begin a name, or stand in one, for TinyXML: any beyond ASCII may, and
// U+007F.
bool StartsXmlName(char c);
bool IsInXmlName(char c);

// Whether `name` can be an attribute's for any reader, and TinyXML reads it: no ':' at the start.
bool IsXmlName(cvn::StringView name);

}  // namespace tessel
