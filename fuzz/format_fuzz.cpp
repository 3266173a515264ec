// Formatting: any format with arguments of all kinds, and single conversions compared with the C
// library's.
#include <cstdio>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "support/format.h"
#include "support/utf.h"

namespace tessel::fuzz {
namespace {

cvn::FormatArgument TakeArgument(Input* input, const std::vector<cvn::String>& texts) {
  const std::uint8_t kind = input->Byte();
  switch (kind % 8) {
    case 0:
      return static_cast<std::int8_t>(input->Byte());
    case 1:
      return static_cast<std::int32_t>(input->Number(4));
    case 2:
      return static_cast<std::int64_t>(input->Number(8));
    case 3:
      return static_cast<std::uint16_t>(input->Number(2));
    case 4:
      return input->Number(8);
    case 5:
      return reinterpret_cast<const void*>(input->Number(8));
    case 6:
      return static_cast<const char16_t*>(nullptr);
    default:
      return texts[kind / 8 % texts.size()];
  }
}

void FormatFreely(Input* input) {
  const std::vector<cvn::String> texts = {u"", u"a", u"%s", cvn::Utf8ToWide(input->Line())};
  const cvn::String format = cvn::Utf8ToWide(input->Line());
  std::vector<cvn::FormatArgument> arguments;
  while (!input->IsEmpty() && arguments.size() < 16) {
    arguments.push_back(TakeArgument(input, texts));
  }
  cvn::String out;
  cvn::AppendFormat(&out, format, arguments);
  // The second of two percent signs may be the letter of a conversion, which takes no argument.
  const cvn::StringView text = format;
  if (arguments.empty() && text.find(u'%') == text.rfind(u'%')) {
    Require(out == format, "without arguments a conversion stays as it is");
  }
}

std::string TakeConversion(Input* input, bool isText) {
  std::string conversion = "%";
  const std::uint8_t flags = input->Byte();
  for (int i = 0; i < 5; ++i) {
    // In C the flags '0' and '#' are undefined for a text.
    if ((flags >> i & 1) != 0 && !(isText && (i == 1 || i == 4))) {
      conversion += "-0+ #"[i];
    }
  }
  if ((flags & 0x20) != 0) {
    conversion += std::to_string(input->Byte());
  }
  if ((flags & 0x40) != 0) {
    conversion += '.';
    conversion += std::to_string(input->Byte());
  }
  return conversion;
}

std::string Narrow(const std::string& conversion, auto argument) {
  char out[4096];
  const int length = std::snprintf(out, sizeof(out), conversion.c_str(), argument);
  return {out, static_cast<std::size_t>(length)};
}

void FormatAsC(Input* input) {
  const std::uint8_t letter = input->Byte() % 6;  // d i u x X s
  std::string conversion = TakeConversion(input, letter == 5);
  std::string expected;
  cvn::String given;
  if (letter == 5) {
    std::string text(input->Line().substr(0, 300));
    std::erase_if(text, [](char c) { return static_cast<unsigned char>(c - 1) >= 0x7F; });
    conversion += 's';
    expected = Narrow(conversion, text.c_str());
    given = cvn::Format(cvn::Utf8ToWide(conversion), cvn::Utf8ToWide(text));
  } else if (letter < 2) {
    const auto number = static_cast<long long>(input->Number(8));
    expected = Narrow(conversion + "ll" + "di"[letter], number);
    given = cvn::Format(cvn::Utf8ToWide(conversion + "I64" + "di"[letter]), number);
  } else {
    const auto number = static_cast<unsigned>(input->Number(4));
    conversion += "uxX"[letter - 2];
    expected = Narrow(conversion, number);
    given = cvn::Format(cvn::Utf8ToWide(conversion), number);
  }
  Require(cvn::WideToUtf8(given) == expected, "a conversion gives what C gives");
}

}  // namespace
}  // namespace tessel::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tessel::fuzz::Input input(data, size);
  if (input.Byte() % 2 == 0) {
    tessel::fuzz::FormatFreely(&input);
  } else {
    tessel::fuzz::FormatAsC(&input);
  }
  return 0;
}
