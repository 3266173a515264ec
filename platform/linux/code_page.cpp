#include "platform/linux/code_page.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "support/utf.h"

namespace platform::posix {
namespace {

constexpr std::uint32_t kUsual = 1252;
constexpr std::uint32_t kUtf8 = 65001;
constexpr std::uint32_t kPages[] = {874,  932,  936,  949,  950,  1250, 1251, 1252,
                                    1253, 1254, 1255, 1256, 1257, 1258, kUtf8};

// The bytes from `first` to `last` stand for `unit` and those after it, though they have no
// character: after Microsoft's tables of these code pages. All others of that kind stand for the
// control character of their number.
struct Unassigned {
  std::uint32_t page;
  unsigned char first;
  unsigned char last;
  char16_t unit;
};

constexpr Unassigned kUnassigned[] = {
    {874, 0xDB, 0xDE, 0xF8C1},  {874, 0xFC, 0xFF, 0xF8C5},  {932, 0xA0, 0xA0, 0xF8F0},
    {932, 0xFD, 0xFF, 0xF8F1},  {936, 0xFF, 0xFF, 0xF8F5},  {949, 0xFF, 0xFF, 0xF8F7},
    {950, 0xFF, 0xFF, 0xF8F8},  {1253, 0xAA, 0xAA, 0xF8F9}, {1253, 0xD2, 0xD2, 0xF8FA},
    {1253, 0xFF, 0xFF, 0xF8FB}, {1255, 0xCA, 0xCA, 0x05BA}, {1255, 0xD9, 0xDF, 0xF88D},
    {1255, 0xFB, 0xFC, 0xF894}, {1255, 0xFF, 0xFF, 0xF896}, {1257, 0xA1, 0xA1, 0xF8FC},
    {1257, 0xA5, 0xA5, 0xF8FD},
};

// Code page 1252, for which no table of the C library is needed: the bytes from 0x80 to 0x9F. All
// others stand for their own number.
constexpr char16_t kUsualControls[] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

// Best fits for the characters from `first` on; '.' where there is none. After Microsoft's table
// for code page 1252, and for the letters in it that others lack after theirs. The full-width forms
// of ASCII (U+FF01 to U+FF5E) are not in here: they fit their ASCII characters.
struct BestFits {
  char16_t first;
  std::string_view bytes;
};

constexpr BestFits kBestFits[] = {
    {0x00C0, "AAAAAA.CEEEEIIII.NOOOOO.OUUUUY..aaaaaa.ceeeeiiii.nooooo.ouuuuy.y"},
    {0x0100,
     "AaAaAaCcCcCcCcDd\320dEeEeEeEeEeGgGgGgGgHhHhIiIiIiIiIi..JjKk.LlLlLl..LlNnNnNn...OoOoOo.."
     "RrRrRrSsSsSsSsTtTtTtUuUuUuUuUuUuWwYyYZzZzZz.b"},
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

char16_t UnassignedUnit(std::uint32_t page, unsigned char byte) {
  for (const Unassigned& each : kUnassigned) {
    if (each.page == page && byte >= each.first && byte <= each.last) {
      return static_cast<char16_t>(each.unit + (byte - each.first));
    }
  }
  return byte;
}

bool IsKnown(std::uint32_t number) {
  return std::find(std::begin(kPages), std::end(kPages), number) != std::end(kPages);
}

// The name by which iconv knows a code page.
std::string NameOf(std::uint32_t number) { return "CP" + std::to_string(number); }

constexpr char kWide[] = "UTF-16LE";

}  // namespace

CodePage::Converter::~Converter() {
  if (IsOpen()) {
    iconv_close(handle_);
  }
}

bool CodePage::Converter::IsOpen() const {
  return handle_ !=
         reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr): its failure
}

std::string CodePage::Converter::Convert(std::string_view character) const {
  char buffer[16];
  char* in = const_cast<char*>(character.data());  // which it only reads
  char* out = buffer;
  std::size_t inLeft = character.size();
  std::size_t outLeft = sizeof(buffer);
  iconv(handle_, nullptr, nullptr, nullptr, nullptr);
  constexpr auto kFailed = static_cast<std::size_t>(-1);
  // The second call gives what is held back to be joined with the next character.
  const bool isDone = iconv(handle_, &in, &inLeft, &out, &outLeft) != kFailed && inLeft == 0 &&
                      iconv(handle_, nullptr, nullptr, &out, &outLeft) != kFailed;
  return isDone ? std::string(buffer, out) : std::string();
}

CodePage::CodePage(std::uint32_t number)
    : number_(IsKnown(number) ? number : kUsual),
      toWide_(kWide, NameOf(number_).c_str()),
      fromWide_(NameOf(number_).c_str(), kWide) {
  if (number_ != kUtf8 && (!toWide_.IsOpen() || !fromWide_.IsOpen())) {
    number_ = kUsual;
  }
  for (std::size_t i = 0; i < upper_.size(); ++i) {
    const auto byte = static_cast<unsigned char>(0x80 + i);
    const char character = static_cast<char>(byte);
    if (number_ == kUsual) {
      upper_[i] = i < std::size(kUsualControls) ? kUsualControls[i] : byte;
    } else if (!IsLead(byte)) {
      upper_[i] = UnitOf({&character, 1}).value_or(UnassignedUnit(number_, byte));
    }
  }
}

bool CodePage::IsLead(unsigned char byte) const {
  if (number_ == 932) {
    return (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
  }
  return HasPairs() && byte >= 0x81 && byte <= 0xFE;
}

std::optional<char16_t> CodePage::UnitOf(std::string_view character) const {
  const std::string wide = toWide_.Convert(character);
  char16_t unit = 0;
  if (wide.size() != sizeof(unit)) {
    return std::nullopt;
  }
  std::memcpy(&unit, wide.data(), sizeof(unit));
  return unit;
}

char16_t CodePage::Default() const { return number_ == 932 ? u'\u30FB' : u'?'; }

std::u16string CodePage::Decode(std::string_view bytes) const {
  if (number_ == kUtf8) {
    return std::u16string(cvn::Utf8ToWide(bytes).AsView());
  }
  // Of no second byte of a pair: so a line end, a '=' or a blank is never taken for one.
  constexpr unsigned char kFirstTrail = 0x40;
  std::u16string text;
  text.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (byte < 0x80 || upper_[byte - 0x80U] != 0) {
      text.push_back(byte < 0x80 ? byte : upper_[byte - 0x80U]);
    } else if (i + 1 < bytes.size() && static_cast<unsigned char>(bytes[i + 1]) >= kFirstTrail) {
      text.push_back(UnitOf(bytes.substr(i, 2)).value_or(Default()));
      ++i;
    } else {
      text.push_back(Default());
    }
  }
  return text;
}

std::string CodePage::Encode(cvn::StringView text) const {
  if (number_ == kUtf8) {
    return cvn::WideToUtf8(text);
  }
  std::string bytes;
  for (const char16_t unit : text) {
    AppendUnit(unit, &bytes);
  }
  return bytes;
}

void CodePage::AppendUnit(char16_t unit, std::string* bytes) const {
  if (unit < 0x80) {
    *bytes += static_cast<char>(unit);
    return;
  }
  if (const auto found = std::find(upper_.begin(), upper_.end(), unit); found != upper_.end()) {
    *bytes += static_cast<char>(0x80 + (found - upper_.begin()));
    return;
  }
  const std::string pair =
      HasPairs() ? fromWide_.Convert({reinterpret_cast<const char*>(&unit), sizeof(unit)})
                 : std::string();
  if (pair.empty()) {
    *bytes += BestFit(unit);
  } else {
    bytes->append(pair);
  }
}

char CodePage::BestFit(char16_t unit) const {
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
  const char fit = place < fits.bytes.size() ? fits.bytes[place] : '.';
  constexpr char16_t kLastLatin = 0x0233;
  const bool isLatinLetter = unit <= kLastLatin && static_cast<unsigned char>(fit) < 0x80;
  const bool fitsLatin = number_ == 1250 || number_ == 1251 || number_ == 1253 || number_ == 1254;
  return fit != '.' && (number_ == kUsual || (fitsLatin && isLatinLetter)) ? fit : '?';
}

}  // namespace platform::posix
