#include "platform/formats/code_page.h"

#include <algorithm>
#include <iterator>

namespace platform::posix {
namespace {

// What the bytes from 0x80 to 0x9F stand for; all others stand for their own number.
constexpr char16_t kUpperControls[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

// Best fits for the characters from `first` on; '.' where there is none. After Microsoft's table
// for code page 1252. The full-width forms of ASCII (U+FF01 to U+FF5E) are not in here: they fit
// their ASCII characters.
struct BestFits {
  char16_t first;
  std::string_view bytes;
};

constexpr BestFits kBestFits[] = {
    {0x0100,
     "AaAaAaCcCcCcCcDd\320dEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIi..JjKk.LlLlLl..LlNnNnNn...OoOoOo.."
     "RrRrRrSsSsSs..TtTtTtUuUuUuUuUuUuWwYy.ZzZz...b"},
    {0x0189, "\320"},
    {0x0191, "\203.....I..l....OOo"},
    {0x01AB, "t..TUu.....z"},
    {0x01C0, "|..!"},
    {0x01CD, "AaIiOoUuUuUuUuUu.Aa....GgGgKkOoOo..j"},
    {0x0261, "g"},
    {0x02B9, "'\".'"},
    {0x02C4, "^...'\257\264`._"},
    {0x02DA, "\260"},
    {0x0300, "`\264^~\257\257..\250.\260...\""},
    {0x0327, "\270"},
    {0x0331, "__"},
    {0x037E, ";"},
    {0x0393, "G....T"},
    {0x03A3, "S..F..O"},
    {0x03B1, "a\337.de"},
    {0x03BC, "\265...p..st.f"},
    {0x04BB, "h"},
    {0x0589, ":"},
    {0x066A, "%"},
    {0x2000, "       "},
    {0x2010, "--.....="},
    {0x2024, "\267"},
    {0x2032, "'..`"},
    {0x2044, "/"},
    {0x2070, "\260...45678"},
    {0x207F, "n0123456789"},
    {0x20A1, "\242..\243..P"},
    {0x2102, "C....E..gHHHh.IILl.N..PPQRRR"},
    {0x2124, "Z...Z.K\305BCeeEF.Mo"},
    {0x2205, "\330"},
    {0x2212, "-\261./\\*\260\267v...8....|.....n"},
    {0x2236, ":.....~"},
    {0x2248, "\230"},
    {0x2261, "=..==....\253\273"},
    {0x22C5, "\267"},
    {0x2302, "\246^"},
    {0x2310, "\254"},
    {0x2320, "()"},
    {0x2329, "<>"},
    {0x2500, "-.\246"},
    {0x250C, "+...+...+...+...+"},
    {0x2524, "\246"},
    {0x252C, "-"},
    {0x2534, "-"},
    {0x253C, "+"},
    {0x2550, "-\246++++++++++++\246\246\246\246\246\246------+++"},
    {0x2580, "\257..._...\246...\246...\246\246\246\246"},
    {0x25A0, "\246"},
    {0x263C, "\244"},
    {0x2758, "|"},
    {0x3000, " "},
    {0x3008, "<>\253\273"},
    {0x301A, "[]"},
    {0x30FB, "\267"},
};

char EncodeUnit(char16_t unit) {
  if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) {
    return static_cast<char>(unit);
  }
  const auto* control = std::find(std::begin(kUpperControls), std::end(kUpperControls), unit);
  if (control != std::end(kUpperControls)) {
    return static_cast<char>(0x80 + (control - kUpperControls));
  }
  if (unit >= 0xFF01 && unit <= 0xFF5E) {
    return static_cast<char>(unit - 0xFEE0);
  }
  const auto* next =
      std::upper_bound(std::begin(kBestFits), std::end(kBestFits), unit,
                       [](char16_t wanted, const BestFits& fits) { return wanted < fits.first; });
  if (next == std::begin(kBestFits)) {
    return '?';
  }
  const BestFits& fits = *std::prev(next);
  const auto place = static_cast<std::size_t>(unit - fits.first);
  return place < fits.bytes.size() && fits.bytes[place] != '.' ? fits.bytes[place] : '?';
}

}  // namespace

std::u16string DecodeAnsi(std::string_view bytes) {
  std::u16string text(bytes.size(), u'\0');
  std::transform(bytes.begin(), bytes.end(), text.begin(), [](char byte) -> char16_t {
    const auto number = static_cast<unsigned char>(byte);
    return number >= 0x80 && number < 0xA0 ? kUpperControls[number - 0x80] : number;
  });
  return text;
}

std::string EncodeAnsi(cvn::StringView text) {
  std::string bytes(text.size(), '\0');
  std::transform(text.begin(), text.end(), bytes.begin(), EncodeUnit);
  return bytes;
}

}  // namespace platform::posix
