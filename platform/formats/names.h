// The host's names, which are bytes, as UTF-16, and when two of them are one to Windows.
//
// A host name is read as UTF-8. A surrogate without its partner is kept in the three bytes that
// UTF-8 would have for it, and a byte that is no part of UTF-8 becomes the surrogate U+DC00 + byte.
// Both directions lose nothing of any bytes or text.
#pragma once

#include <string>
#include <string_view>

#include "support/string.h"

namespace platform::posix {

// Separators and other ASCII characters stand for themselves, so both work on names and on whole
// paths.
cvn::String ToWide(std::string_view hostText);
void AppendHostText(cvn::StringView text, std::string* out);

// `text` up to its first zero character, which ends it for every call of Windows.
cvn::StringView UpToZero(cvn::StringView text);

// The form by which Windows compares names: each code unit in upper case for itself, in no
// language's rules.
std::u16string Folded(cvn::StringView text);

bool IsAscii(std::string_view hostText);

// Appends the upper-case form of a host name.
void AppendFolded(std::string_view hostName, std::u16string* out);

}  // namespace platform::posix
