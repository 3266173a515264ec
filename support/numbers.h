// Numbers in text, and comparison without case, by the rules that scripts see.
#pragma once

#include <cstdint>

#include "support/string.h"

namespace cvn {

// Decimal: leading blanks, an optional sign, digits up to the first other character. No digit gives
// 0; a number out of range saturates. Microsoft documents both for _wtoi and _wtoi64.
std::int32_t ReadInt32(StringView text);
std::int64_t ReadInt64(StringView text);

// True for a non-empty text of the digits 0 to 9 only.
bool IsAllDigits(StringView text);

// Orders as _wcsicmp does in the "C" locale: only A to Z fold, to lower case. Negative, 0 or
// positive.
int CompareNoCase(StringView left, StringView right);
bool EqualNoCase(StringView left, StringView right);

}  // namespace cvn
