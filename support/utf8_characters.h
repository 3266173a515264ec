// Characters in well-formed UTF-8 that ends in a NUL, as XPath counts them.
#pragma once

#include <cstddef>
#include <cstring>

namespace cvn {

// Whether a byte of a character isn't its first.
inline bool ContinuesCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Of `text` behind its first `count` characters, or its end.
inline const char* SkipCharacters(const char* text, std::size_t count) {
  for (; count != 0 && *text != '\0'; --count) {
    do {
      ++text;
    } while (ContinuesCharacter(*text));
  }
  return text;
}

inline std::size_t CountCharacters(const char* text) {
  std::size_t count = 0;
  for (; *text != '\0'; ++text) {
    count += ContinuesCharacter(*text) ? 0 : 1;
  }
  return count;
}

// Puts the characters of `to` in the place of those of `from`, and takes those away that have none
// there. Writes to `out`, unless it is null, with a NUL behind; returns the length without it.
inline std::size_t TranslateCharacters(const char* text, const char* from, const char* to,
                                       char* out) {
  std::size_t length = 0;
  while (*text != '\0') {
    const char* end = SkipCharacters(text, 1);
    auto size = static_cast<std::size_t>(end - text);
    const char* written = text;
    const char* replaced = to;
    for (const char* at = from; *at != '\0'; at = SkipCharacters(at, 1)) {
      if (std::strncmp(at, text, size) == 0) {
        written = replaced;
        size = static_cast<std::size_t>(SkipCharacters(replaced, 1) - replaced);
        break;
      }
      replaced = SkipCharacters(replaced, 1);
    }
    if (out != nullptr) {
      std::memcpy(out + length, written, size);
    }
    length += size;
    text = end;
  }
  if (out != nullptr) {
    out[length] = '\0';
  }
  return length;
}

}  // namespace cvn
