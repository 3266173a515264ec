// printf-style formatting of wide text, type-safe.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "support/string.h"

namespace cvn {

// One argument. A view, not a copy: the value must outlive the call.
class FormatArgument {
 public:
  enum class Kind { Text, NullText, Signed, Unsigned, Pointer };

  FormatArgument(StringView text)
      : kind_(Kind::Text), text_(text) {}  // NOLINT(google-explicit-constructor)
  template <std::size_t N>
  FormatArgument(const StringT<char16_t, N>& text)  // NOLINT(google-explicit-constructor)
      : FormatArgument(text.AsView()) {}
  FormatArgument(const char16_t* text)  // NOLINT(google-explicit-constructor)
      : kind_(text == nullptr ? Kind::NullText : Kind::Text),
        text_(text == nullptr ? StringView() : StringView(text)) {}
  template <std::integral T>
  FormatArgument(T value)  // NOLINT(google-explicit-constructor)
      : kind_(std::is_signed_v<T> ? Kind::Signed : Kind::Unsigned),
        bytes_(sizeof(T)),
        number_(static_cast<std::uint64_t>(value)) {}
  // A class that stands for a 32-bit number, as an error code does.
  template <typename T>
  requires(std::is_class_v<T>&& std::convertible_to<T, std::uint32_t>)
      FormatArgument(const T& value)  // NOLINT(google-explicit-constructor)
      : FormatArgument(static_cast<std::uint32_t>(value)) {}
  FormatArgument(const void* pointer)  // NOLINT(google-explicit-constructor)
      : kind_(Kind::Pointer),
        bytes_(sizeof(pointer)),
        number_(reinterpret_cast<std::uintptr_t>(pointer)) {}

  Kind GetKind() const { return kind_; }
  StringView Text() const { return text_; }
  // The value, sign-extended to 64 bits when signed.
  std::uint64_t Number() const { return number_; }
  // Size in bytes of the integer type that was passed.
  std::size_t Bytes() const { return bytes_; }

 private:
  Kind kind_;
  std::size_t bytes_ = 0;
  StringView text_;
  std::uint64_t number_ = 0;
};

// Appends `format` with its arguments filled in. Conversions: %s %c %d %i %u %x %X %p %%; flags - 0
// + blank #, a width, a precision. The length letters h, l, ll, I64 are ignored, since an argument
// knows its own size. %p gives 0x and 16 upper-case hexadecimal digits. A null text gives "(null)".
// An argument that doesn't fit its conversion is written by its own type; a conversion without an
// argument is copied unchanged.
void AppendFormat(String* out, StringView format, std::span<const FormatArgument> arguments);

template <typename... Args>
String Format(StringView format, const Args&... args) {
  String out;
  AppendFormat(&out, format, std::array<FormatArgument, sizeof...(Args)>{FormatArgument(args)...});
  return out;
}

// The bytes as lower-case hexadecimal digits, two each.
String HexText(std::span<const std::byte> bytes);

}  // namespace cvn
