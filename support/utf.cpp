#include "support/utf.h"

#include <emmintrin.h>

#include <cstdint>
#include <cstring>

namespace cvn {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsLeadSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsTrailSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

struct Decoded {
  char32_t character;
  std::size_t bytes;
  bool valid;
};

// What a lead byte announces: the length of its sequence, and the range of the second byte, which
// excludes overlong forms, surrogates and values over U+10FFFF (Unicode standard, table 3-7).
struct LeadByte {
  std::size_t length;
  unsigned char secondLow;
  unsigned char secondHigh;
};

LeadByte ClassifyLead(unsigned char lead) {
  if (lead >= 0xC2 && lead <= 0xDF) {
    return {2, 0x80, 0xBF};
  }
  if (lead >= 0xE0 && lead <= 0xEF) {
    return {3, static_cast<unsigned char>(lead == 0xE0 ? 0xA0 : 0x80),
            static_cast<unsigned char>(lead == 0xED ? 0x9F : 0xBF)};
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    return {4, static_cast<unsigned char>(lead == 0xF0 ? 0x90 : 0x80),
            static_cast<unsigned char>(lead == 0xF4 ? 0x8F : 0xBF)};
  }
  return {1, 0, 0};
}

Decoded DecodeMultibyte(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text[0]);
  const LeadByte kind = ClassifyLead(lead);
  if (kind.length == 1) {
    return {kReplacement, 1, false};
  }
  char32_t character = lead & (0x7FU >> kind.length);
  for (std::size_t i = 1; i < kind.length; ++i) {
    const unsigned char byte = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    const unsigned char low = i == 1 ? kind.secondLow : 0x80;
    const unsigned char high = i == 1 ? kind.secondHigh : 0xBF;
    if (byte < low || byte > high) {
      return {kReplacement, i, false};
    }
    character = (character << 6) | (byte & 0x3FU);
  }
  return {character, kind.length, true};
}

// The length of the run of ASCII at the start of `text`, compared eight bytes at a time.
std::size_t AsciiRun(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t length = 0;
  for (; length + sizeof(std::uint64_t) <= text.size(); length += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + length, sizeof(word));
    if ((word & kHighBits) != 0) {
      break;
    }
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) {
    ++length;
  }
  return length;
}

constexpr std::size_t kBlock = 16;  // units that are narrowed at once

// Copies a block if it is of ASCII.
bool CopyAsciiBlock(const char16_t* from, char* to) {
  const auto* units = reinterpret_cast<const __m128i*>(from);
  const __m128i first = _mm_loadu_si128(units);
  const __m128i second = _mm_loadu_si128(units + 1);
  const __m128i high = _mm_and_si128(_mm_or_si128(first, second), _mm_set1_epi16(-0x80));
  if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, _mm_setzero_si128())) != 0xFFFF) {
    return false;
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(first, second));
  return true;
}

// Copies the run of ASCII at the start of `text`, and returns its length.
std::size_t CopyAscii(StringView text, char* to) {
  std::size_t length = 0;
  while (length + kBlock <= text.size() && CopyAsciiBlock(text.data() + length, to + length)) {
    length += kBlock;
  }
  // The rest together with units before it, which are copied once more.
  const std::size_t lastBlock = text.size() - std::min(text.size(), kBlock);
  if (length > lastBlock && CopyAsciiBlock(text.data() + lastBlock, to + lastBlock)) {
    return text.size();
  }
  for (; length < text.size() && text[length] < 0x80; ++length) {
    to[length] = static_cast<char>(text[length]);
  }
  return length;
}

void AppendWide(char32_t character, char16_t** out) {
  if (character < 0x10000) {
    *(*out)++ = static_cast<char16_t>(character);
    return;
  }
  // 0xD7C0 is 0xD800 - (0x10000 >> 10), the first lead surrogate for a character from 0x10000 on.
  *(*out)++ = static_cast<char16_t>(0xD7C0 + (character >> 10));
  *(*out)++ = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
}

// Writes the UTF-8 form of a character from 0x80 on, and returns its end.
char* EncodeMultibyte(char32_t character, char* out) {
  const auto tail = [character](unsigned shift) {
    return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
  };
  if (character < 0x800) {
    *out++ = static_cast<char>(0xC0 | (character >> 6));
  } else if (character < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (character >> 12));
    *out++ = tail(6);
  } else {
    *out++ = static_cast<char>(0xF0 | (character >> 18));
    *out++ = tail(12);
    *out++ = tail(6);
  }
  *out++ = tail(0);
  return out;
}

char* EncodeUnits(StringView text, char* to) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (unit < 0x80) {
      *to++ = static_cast<char>(unit);
      continue;
    }
    char32_t character = unit;
    if (IsLeadSurrogate(unit) && i + 1 < text.size() && IsTrailSurrogate(text[i + 1])) {
      ++i;
      character = 0x10000 + ((unit - 0xD800U) << 10) + (text[i] - 0xDC00U);
    } else if (IsLeadSurrogate(unit) || IsTrailSurrogate(unit)) {
      character = kReplacement;
    }
    to = EncodeMultibyte(character, to);
  }
  return to;
}

}  // namespace

String Utf8ToWide(std::string_view text) {
  constexpr std::size_t kChunk = 256;
  String wide;
  wide.Reserve(text.size());  // a byte never becomes more than one code unit
  char16_t units[kChunk];
  while (!text.empty()) {
    const std::size_t ascii = AsciiRun(text.substr(0, kChunk));
    char16_t* out = std::copy_n(reinterpret_cast<const unsigned char*>(text.data()), ascii, units);
    text.remove_prefix(ascii);
    while (!text.empty() && static_cast<unsigned char>(text[0]) >= 0x80 &&
           out + 2 <= units + kChunk) {
      const Decoded decoded = DecodeMultibyte(text);
      AppendWide(decoded.character, &out);
      text.remove_prefix(decoded.bytes);
    }
    wide.Append(StringView(units, static_cast<std::size_t>(out - units)));
  }
  return wide;
}

void AppendUtf8(StringView text, std::string* out) {
  const std::size_t before = out->size();
  out->resize(before + text.size());
  const std::size_t ascii = CopyAscii(text, out->data() + before);
  if (ascii == text.size()) {
    return;
  }
  out->resize(before + ascii + (text.size() - ascii) * 3);  // the widest that a code unit becomes
  const char* end = EncodeUnits(text.substr(ascii), out->data() + before + ascii);
  out->resize(static_cast<std::size_t>(end - out->data()));
}

char* EncodeUtf8(StringView text, char* to) {
  const std::size_t ascii = CopyAscii(text, to);
  return EncodeUnits(text.substr(ascii), to + ascii);
}

std::string WideToUtf8(StringView text) {
  std::string out;
  AppendUtf8(text, &out);
  return out;
}

std::string Utf16BytesToUtf8(std::string_view bytes, bool bigEndian) {
  String wide;
  wide.Reserve(bytes.size() / 2);
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
    const auto first = static_cast<unsigned char>(bytes[at]);
    const auto second = static_cast<unsigned char>(bytes[at + 1]);
    wide.Append(static_cast<char16_t>(bigEndian ? first << 8 | second : second << 8 | first));
  }
  return WideToUtf8(wide);
}

void RepairUtf8(std::string* text) {
  if (!IsValidUtf8(*text)) {
    *text = WideToUtf8(Utf8ToWide(*text));
  }
}

bool IsValidUtf8(std::string_view text, std::size_t* badOffset) {
  std::size_t at = 0;
  while (at < text.size()) {
    at += AsciiRun(text.substr(at));
    if (at == text.size()) {
      break;
    }
    const Decoded decoded = DecodeMultibyte(text.substr(at));
    if (!decoded.valid) {
      if (badOffset != nullptr) {
        *badOffset = at;
      }
      return false;
    }
    at += decoded.bytes;
  }
  return true;
}

}  // namespace cvn
