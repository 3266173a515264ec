// Bytes that stand, in the texts of a document's tree, for what TinyXML's parser would drop or
// change. None of them occurs in UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace tessel {

inline constexpr char kReferenceMark = '\xFF';     // the '&' of a reference that stays as it is
inline constexpr char kNoBreakSpaceMark = '\xFE';  // U+FEFF, a byte-order mark to TinyXML
inline constexpr char kSectionMark = '\xFD';       // between two CDATA sections side by side

// U+007F, which may be in a name for TinyXML alone. Not in its trees, but in what others read.
inline constexpr char kDeleteMark = '\xF8';

struct XmlMark {
  char mark;
  std::string_view printed;  // in a file
  std::string_view plain;    // as a character of the text
};

inline constexpr XmlMark kXmlMarks[] = {
    {kReferenceMark, "&", "&"},
    {kNoBreakSpaceMark, "\xEF\xBB\xBF", "\xEF\xBB\xBF"},
    {kSectionMark, "]]><![CDATA[", ""},
    {kDeleteMark, "\x7F", "\x7F"},
    // Blanks written as references aren't layout.
    {'\xFC', "&#x09;", "\t"},
    {'\xFB', "&#x0A;", "\n"},
    {'\xFA', "&#x0D;", "\r"},
    {'\xF9', "&#x20;", " "},
};

// Null when `c` is an ordinary byte of a text.
constexpr const XmlMark* FindXmlMark(char c) {
  if (static_cast<unsigned char>(c) < 0xF8) {
    return nullptr;
  }
  for (const XmlMark& mark : kXmlMarks) {
    if (mark.mark == c) {
      return &mark;
    }
  }
  return nullptr;
}

// The characters that `text` has for a reader of the document.
inline std::string WithoutXmlMarks(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (const char c : text) {
    if (const XmlMark* mark = FindXmlMark(c)) {
      plain.append(mark->plain);
    } else {
      plain.append(1, c);
    }
  }
  return plain;
}

}  // namespace tessel
