#include "tools/tlx/html_text.h"

#include "support/format.h"
#include "support/utf.h"
#include "support/utf8_characters.h"
#include "tools/tlx/unseen.h"

namespace tlx {
namespace {

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
  for (cvn::StringView rest = text; !rest.empty();) {
    const std::size_t at = text.size() - rest.size();
    const char32_t character = TakeCharacter(&rest);
    const char* entity = EntityOf(character);
    if (entity == nullptr && !IsUnseen(character)) {
      continue;
    }
    flush(at);
    plain = text.size() - rest.size();
    if (entity != nullptr) {
      html += entity;
    } else {
      cvn::AppendUtf8(cvn::Format(u"\\u%04X", static_cast<std::uint32_t>(character)), &html);
    }
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
