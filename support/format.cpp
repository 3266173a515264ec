#include "support/format.h"

#include <algorithm>
#include <optional>

#include "support/numbers.h"

namespace cvn {
namespace {

struct Conversion {
  bool leftAligned = false;
  bool zeroFilled = false;
  bool plusSign = false;
  bool blankSign = false;
  bool prefixed = false;
  std::size_t width = 0;
  std::optional<std::size_t> precision;
  char16_t letter = 0;
};

// Larger widths and precisions are cut to this, so that a script's text can't exhaust memory.
constexpr std::size_t kWidestField = 4096;

std::size_t ReadCount(StringView format, std::size_t* at) {
  std::size_t count = 0;
  for (; *at < format.size() && format[*at] >= u'0' && format[*at] <= u'9'; ++*at) {
    count = std::min(count * 10 + (format[*at] - u'0'), kWidestField);
  }
  return count;
}

bool ReadFlag(char16_t c, Conversion* conversion) {
  switch (c) {
    case u'-':
      conversion->leftAligned = true;
      return true;
    case u'0':
      conversion->zeroFilled = true;
      return true;
    case u'+':
      conversion->plusSign = true;
      return true;
    case u' ':
      conversion->blankSign = true;
      return true;
    case u'#':
      conversion->prefixed = true;
      return true;
    default:
      return false;
  }
}

// Reads the conversion that follows a percent sign at `at`, and moves `at` past it. False when the
// format ends within it.
bool ReadConversion(StringView format, std::size_t* at, Conversion* conversion) {
  while (*at < format.size() && ReadFlag(format[*at], conversion)) {
    ++*at;
  }
  conversion->width = ReadCount(format, at);
  if (*at < format.size() && format[*at] == u'.') {
    ++*at;
    conversion->precision = ReadCount(format, at);
  }
  if (format.substr(*at).starts_with(u"I64")) {
    *at += 3;
  }
  while (*at < format.size() && (format[*at] == u'l' || format[*at] == u'h')) {
    ++*at;
  }
  if (*at == format.size()) {
    return false;
  }
  conversion->letter = format[(*at)++];
  return true;
}

void AppendFill(String* out, char16_t fill, std::size_t count) {
  for (; count > 0; --count) {
    out->Append(fill);
  }
}

void AppendPadded(String* out, const Conversion& conversion, StringView text) {
  const std::size_t padding = conversion.width > text.size() ? conversion.width - text.size() : 0;
  if (!conversion.leftAligned) {
    AppendFill(out, u' ', padding);
  }
  out->Append(text);
  if (conversion.leftAligned) {
    AppendFill(out, u' ', padding);
  }
}

void AppendDigits(String* out, const Conversion& conversion, StringView sign, StringView digits) {
  const std::size_t wanted = conversion.precision.value_or(1);
  std::size_t zeros = wanted > digits.size() ? wanted - digits.size() : 0;
  const std::size_t used = sign.size() + zeros + digits.size();
  std::size_t padding = conversion.width > used ? conversion.width - used : 0;
  // As in C, an explicit precision or left alignment switches zero fill off.
  if (conversion.zeroFilled && !conversion.leftAligned && !conversion.precision) {
    zeros += padding;
    padding = 0;
  }
  if (!conversion.leftAligned) {
    AppendFill(out, u' ', padding);
  }
  out->Append(sign);
  AppendFill(out, u'0', zeros);
  out->Append(digits);
  if (conversion.leftAligned) {
    AppendFill(out, u' ', padding);
  }
}

// The digits of `value`, written backwards into the end of `buffer`.
template <std::size_t Size>
StringView Digits(std::uint64_t value, unsigned base, bool upperCase, char16_t (&buffer)[Size]) {
  const StringView alphabet = upperCase ? u"0123456789ABCDEF" : u"0123456789abcdef";
  char16_t* at = buffer + Size;
  for (; value != 0; value /= base) {
    *--at = alphabet[value % base];
  }
  return StringView(at, static_cast<std::size_t>(buffer + Size - at));
}

std::uint64_t WithoutSignExtension(const FormatArgument& argument) {
  const std::size_t bits = argument.Bytes() * 8;
  return bits >= 64 ? argument.Number() : argument.Number() & ((std::uint64_t{1} << bits) - 1);
}

void AppendNumber(String* out, const Conversion& conversion, const FormatArgument& argument) {
  char16_t buffer[20];
  const bool hexadecimal = conversion.letter == u'x' || conversion.letter == u'X';
  if (hexadecimal || conversion.letter == u'u') {
    const bool upper = conversion.letter == u'X';
    const std::uint64_t value = WithoutSignExtension(argument);
    const StringView prefix = upper ? u"0X" : u"0x";
    AppendDigits(out, conversion,
                 hexadecimal && conversion.prefixed && value != 0 ? prefix : StringView(),
                 Digits(value, hexadecimal ? 16 : 10, upper, buffer));
    return;
  }
  const bool negative = argument.GetKind() == FormatArgument::Kind::Signed &&
                        static_cast<std::int64_t>(argument.Number()) < 0;
  StringView sign = conversion.plusSign ? u"+" : (conversion.blankSign ? u" " : u"");
  if (negative) {
    sign = u"-";
  }
  const std::uint64_t magnitude =
      negative ? std::uint64_t{0} - argument.Number() : argument.Number();
  AppendDigits(out, conversion, sign, Digits(magnitude, 10, false, buffer));
}

void AppendPointer(String* out, const Conversion& conversion, std::uint64_t address) {
  char16_t buffer[16];
  Conversion digits;
  digits.precision = 16;
  String text(u"0x");
  AppendDigits(&text, digits, {}, Digits(address, 16, true, buffer));
  AppendPadded(out, conversion, text);
}

void AppendArgument(String* out, const Conversion& conversion, const FormatArgument& argument) {
  using Kind = FormatArgument::Kind;
  const Kind kind = argument.GetKind();
  if (kind == Kind::Text || kind == Kind::NullText) {
    const StringView text = kind == Kind::NullText ? StringView(u"(null)") : argument.Text();
    AppendPadded(out, conversion, text.substr(0, conversion.precision.value_or(text.size())));
  } else if (kind == Kind::Pointer || conversion.letter == u'p') {
    AppendPointer(out, conversion, argument.Number());
  } else if (conversion.letter == u'c') {
    const auto character = static_cast<char16_t>(argument.Number());
    AppendPadded(out, conversion, StringView(&character, 1));
  } else {
    AppendNumber(out, conversion, argument);
  }
}

char16_t* Write(StringView text, char16_t* to) { return std::copy(text.begin(), text.end(), to); }

// The number as %d gives it, which takes up to kWidestNumber characters.
constexpr std::size_t kWidestNumber = 20;
char16_t* WriteNumber(const FormatArgument& argument, char16_t* to) {
  std::uint64_t magnitude = argument.Number();
  if (argument.GetKind() == FormatArgument::Kind::Signed &&
      static_cast<std::int64_t>(magnitude) < 0) {
    *to++ = u'-';
    magnitude = std::uint64_t{0} - magnitude;
  }
  char16_t buffer[kWidestNumber];
  return magnitude == 0 ? Write(u"0", to) : Write(Digits(magnitude, 10, false, buffer), to);
}

// Appends a format piece by piece.
class Formatter {
 public:
  Formatter(StringView format, std::span<const FormatArgument> arguments, String* out)
      : format_(format), arguments_(arguments), out_(out) {}

  void AppendAll() {
    AppendPlain();
    while (at_ < format_.size()) {
      AppendConversion();
      AppendPlain();
    }
  }

 private:
  // Appends text, and arguments of a bare %s or %d, up to the end or a conversion of another kind.
  // Most lines are nothing else, and in a trace of millions of them it is their price.
  void AppendPlain() {
    std::size_t most = format_.size() - at_;
    for (const FormatArgument& argument : arguments_) {
      most += std::max(argument.Text().size(), kWidestNumber);
    }
    out_->AppendWritten(most, [this](char16_t* to) { return WritePlain(to); });
  }

  char16_t* WritePlain(char16_t* to) {
    using Kind = FormatArgument::Kind;
    for (;;) {
      const std::size_t percent = std::min(FindUnit(format_, u'%', at_), format_.size());
      to = Write(format_.substr(at_, percent - at_), to);
      at_ = percent;
      if (at_ + 1 >= format_.size() || arguments_.empty()) {
        return to;
      }
      const FormatArgument& argument = arguments_.front();
      const char16_t letter = format_[at_ + 1];
      if (letter == u's' && argument.GetKind() == Kind::Text) {
        to = Write(argument.Text(), to);
      } else if (letter == u'd' &&
                 (argument.GetKind() == Kind::Signed || argument.GetKind() == Kind::Unsigned)) {
        to = WriteNumber(argument, to);
      } else {
        return to;
      }
      at_ += 2;
      arguments_ = arguments_.subspan(1);
    }
  }

  void AppendConversion() {
    const std::size_t percent = at_++;
    Conversion conversion;
    const bool complete = ReadConversion(format_, &at_, &conversion);
    if (complete && conversion.letter == u'%') {
      out_->Append(u'%');
    } else if (complete && StringView(u"scdiuxXp").find(conversion.letter) != StringView::npos &&
               !arguments_.empty()) {
      AppendArgument(out_, conversion, arguments_.front());
      arguments_ = arguments_.subspan(1);
    } else {
      out_->Append(format_.substr(percent, at_ - percent));
    }
  }

  const StringView format_;
  std::size_t at_ = 0;
  std::span<const FormatArgument> arguments_;  // that are left
  String* const out_;
};

}  // namespace

void AppendFormat(String* out, StringView format, std::span<const FormatArgument> arguments) {
  Formatter(format, arguments, out).AppendAll();
}

String HexText(std::span<const std::byte> bytes) {
  constexpr StringView kDigits = u"0123456789abcdef";
  String text;
  text.Reserve(2 * bytes.size());
  for (const std::byte byte : bytes) {
    text.Append(kDigits[std::to_integer<std::size_t>(byte >> 4)]);
    text.Append(kDigits[std::to_integer<std::size_t>(byte & std::byte{0xF})]);
  }
  return text;
}

}  // namespace cvn
