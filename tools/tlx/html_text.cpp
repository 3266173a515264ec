#include "tools/tlx/html_text.h"

#include "support/format.h"
#include "support/utf.h"
#include "support/utf8_characters.h"

namespace tlx {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// Controls, and what Unicode has as format characters: soft hyphen, marks and overrides of
// direction, joiners, separators of lines, invisible operators, annotations, tags.
constexpr Range kUnseen[] = {
    {0x00, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},
    {0x61C, 0x61C},   {0x180E, 0x180E}, {0x200B, 0x200F}, {0x2028, 0x202E},
    {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},
};

bool IsUnseen(char32_t character) {
  for (const Range& range : kUnseen) {
    if (character >= range.first && character <= range.last) {
      return true;
    }
  }
  return false;
}

char32_t CharacterAt(cvn::StringView text, std::size_t at) {
  const char32_t unit = text[at];
  if (unit < 0xD800 || unit > 0xDBFF || at + 1 == text.size()) {
    return unit;
  }
  const char32_t second = text[at + 1];
  return second < 0xDC00 || second > 0xDFFF ? unit
                                            : 0x10000 + ((unit - 0xD800) << 10) + second - 0xDC00;
}

const char* EntityOf(char32_t character) {
  switch (character) {
    case U'&':
      return "&amp;";
    case U'<':
      return "&lt;";
    case U'>':
      return "&gt;";
    case U'"':
      return "&quot;";
    case U'\'':
      return "&#39;";
    default:
      return nullptr;
  }
}

}  // namespace

std::string Html(cvn::StringView text) {
  std::string html;
  html.reserve(text.size());
  std::size_t plain = 0;  // begins what needs no change
  const auto flush = [&](std::size_t end) {
    cvn::AppendUtf8(text.substr(plain, end - plain), &html);
  };
  for (std::size_t at = 0; at < text.size();) {
    const char32_t character = CharacterAt(text, at);
    const std::size_t units = character > 0xFFFF ? 2 : 1;
    const char* entity = EntityOf(character);
    if (entity != nullptr) {
      flush(at);
      html += entity;
      plain = at + units;
    } else if (IsUnseen(character)) {
      flush(at);
      cvn::AppendUtf8(cvn::Format(u"\\u%04X", static_cast<std::uint32_t>(character)), &html);
      plain = at + units;
    }
    at += units;
  }
  flush(text.size());
  return html;
}

std::string Html(std::string_view utf8) { return Html(cvn::Utf8ToWide(utf8).AsView()); }

CutText CutUtf8(std::string_view utf8, std::size_t bytes) {
  if (utf8.size() <= bytes) {
    return {utf8, 0};
  }
  while (bytes > 0 && cvn::ContinuesCharacter(utf8[bytes])) {
    --bytes;
  }
  return {utf8.substr(0, bytes), utf8.size() - bytes};
}

}  // namespace tlx
