// What the small libraries of the tests have in common. They stand in for closed ones, so they use
// nothing of this system, and no C++ runtime either.
//
// A library does what "library-script.txt" in the current directory says, and appends what it is
// given to "library-record.txt" beside it; without that script it is silent. The script is words
// "name=number".
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace recorder {

// The number that the script gives for a name, or `otherwise`. `isThere` tells whether there is
// one.
inline std::uint32_t Scripted(const char* name, std::uint32_t otherwise, bool* isThere = nullptr) {
  std::FILE* const script = std::fopen("library-script.txt", "rb");
  if (isThere != nullptr) {
    *isThere = script != nullptr;
  }
  if (script == nullptr) {
    return otherwise;
  }
  char word[64];
  unsigned number = 0;
  while (std::fscanf(script, " %63[^=]=%u", word, &number) == 2) {
    if (std::strcmp(word, name) == 0) {
      otherwise = number;
    }
  }
  std::fclose(script);
  return otherwise;
}

inline void Record(const char* format, ...) {
  bool isThere = false;
  Scripted("", 0, &isThere);
  std::FILE* const record = isThere ? std::fopen("library-record.txt", "ab") : nullptr;
  if (record == nullptr) {
    return;
  }
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(record, format, arguments);
  va_end(arguments);
  std::fputc('\n', record);
  std::fclose(record);
}

// A text of at most 511 characters as ASCII, others as \uXXXX.
struct Narrow {
  explicit Narrow(const char16_t* wide) {
    std::size_t length = 0;
    for (; *wide != 0 && length + 7 < sizeof(text); ++wide) {
      const auto c = static_cast<unsigned>(*wide);
      const int written = c >= 0x20 && c < 0x7F
                              ? std::snprintf(text + length, 8, "%c", static_cast<int>(c))
                              : std::snprintf(text + length, 8, "\\u%04x", c);
      length += static_cast<std::size_t>(written);
    }
    text[length] = '\0';
  }
  char text[512];
};

// The 16 bytes of an identifier, in the order of memory.
struct Hex {
  explicit Hex(const void* bytes) {
    for (std::size_t i = 0; i < 16; ++i) {
      std::snprintf(text + 2 * i, 3, "%02x", static_cast<const unsigned char*>(bytes)[i]);
    }
  }
  char text[33];
};

}  // namespace recorder
