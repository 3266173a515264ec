// Conversion between UTF-8 and UTF-16.
#pragma once

#include <string>
#include <string_view>

#include "support/string.h"

namespace cvn {

// Malformed input becomes U+FFFD, one for each maximal ill-formed part; it is never refused. A
// byte-order mark is a character like any other.
String Utf8ToWide(std::string_view text);

// A surrogate without its partner becomes U+FFFD.
std::string WideToUtf8(StringView text);
void AppendUtf8(StringView text, std::string* out);
// The same, written to `to`, which has room for three bytes a unit. Returns the end.
char* EncodeUtf8(StringView text, char* to);

// UTF-16 as it stands in a file, in either byte order; an odd last byte is ignored.
std::string Utf16BytesToUtf8(std::string_view bytes, bool bigEndian);

// Replaces what is malformed, as Utf8ToWide does.
void RepairUtf8(std::string* text);

// True when `text` is well-formed UTF-8. On false, `*badOffset` (optional) is the offset of the
// first byte that is not part of a well-formed sequence.
bool IsValidUtf8(std::string_view text, std::size_t* badOffset = nullptr);

}  // namespace cvn
