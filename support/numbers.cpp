#include "support/numbers.h"

#include <algorithm>
#include <limits>

namespace cvn {
namespace {

bool IsBlank(char16_t c) { return c == u' ' || (c >= u'\t' && c <= u'\r'); }
bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
char16_t FoldAscii(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
}

template <typename Int>
Int ReadSaturated(StringView text) {
  auto at = std::find_if_not(text.begin(), text.end(), IsBlank);
  bool negative = false;
  if (at != text.end() && (*at == u'-' || *at == u'+')) {
    negative = *at == u'-';
    ++at;
  }
  // Counts downwards, since the negative range is larger by one.
  constexpr Int kLowest = std::numeric_limits<Int>::min();
  Int value = 0;
  for (; at != text.end() && IsDigit(*at); ++at) {
    const Int digit = static_cast<Int>(*at - u'0');
    if (value < kLowest / 10 || value * 10 < kLowest + digit) {
      value = kLowest;
      break;
    }
    value = static_cast<Int>(value * 10 - digit);
  }
  if (negative) {
    return value;
  }
  return value == kLowest ? std::numeric_limits<Int>::max() : static_cast<Int>(-value);
}

}  // namespace

std::int32_t ReadInt32(StringView text) { return ReadSaturated<std::int32_t>(text); }
std::int64_t ReadInt64(StringView text) { return ReadSaturated<std::int64_t>(text); }

bool IsAllDigits(StringView text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

int CompareNoCase(StringView left, StringView right) {
  const std::size_t common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; ++i) {
    const int difference = FoldAscii(left[i]) - FoldAscii(right[i]);
    if (difference != 0) {
      return difference;
    }
  }
  return left.size() == right.size() ? 0 : (left.size() < right.size() ? -1 : 1);
}

bool EqualNoCase(StringView left, StringView right) {
  return left.size() == right.size() && CompareNoCase(left, right) == 0;
}

}  // namespace cvn
