// The ANSI code pages of Windows, by the C library's tables; where those have nothing, by
// Microsoft's.
#pragma once

#include <iconv.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "support/string.h"

namespace platform::posix {

class CodePage {
 public:
  // 874, 1250 to 1258, 932, 936, 949, 950 and 65001 (UTF-8). Any other number, and one that the C
  // library has no table for, stands for 1252.
  explicit CodePage(std::uint32_t number);

  // As MultiByteToWideChar. In a page of single bytes each byte is one code unit, and one without a
  // character stands for a control or private character, so that it comes back the same. In the
  // others, what has no character becomes the page's default (U+30FB in 932, U+FFFD in 65001, '?'),
  // user-defined characters among them; no line end ever belongs to a character of two bytes.
  std::u16string Decode(std::string_view bytes) const;

  // As WideCharToMultiByte: a character that the page lacks becomes its best fit, else '?'. Best
  // fits are known for all of 1252 ('l' for U+0142), for accented Latin letters in 1250, 1251, 1253
  // and 1254, and for full-width ASCII.
  std::string Encode(cvn::StringView text) const;

 private:
  // One direction of iconv, a character at a time.
  class Converter {
   public:
    Converter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter();

    bool IsOpen() const;
    // Empty when there is no such character.
    std::string Convert(std::string_view character) const;

   private:
    iconv_t handle_;
  };

  bool HasPairs() const { return number_ < 1000 && number_ != 874; }
  bool IsLead(unsigned char byte) const;
  std::optional<char16_t> UnitOf(std::string_view character) const;
  char16_t Default() const;
  void AppendUnit(char16_t unit, std::string* bytes) const;
  char BestFit(char16_t unit) const;

  std::uint32_t number_;
  Converter toWide_;
  Converter fromWide_;
  std::array<char16_t, 128> upper_{};  // of the bytes from 0x80 on; 0 for the first of a pair
};

}  // namespace platform::posix
