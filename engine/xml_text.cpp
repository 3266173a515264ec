#include "engine/xml_text.h"

#include "support/utf.h"
#include "support/xml_nesting.h"
#include "trace/trace.h"

namespace tessel {

bool ParseXmlText(cvn::StringView text, TiXmlDocument* document, bool keepsPlaces) {
  return ParseXmlUtf8(cvn::WideToUtf8(text), document, keepsPlaces);
}

bool ParseXmlUtf8(const std::string& utf8, TiXmlDocument* document, bool keepsPlaces) {
  if (utf8.empty()) {
    return false;
  }
  if (!cvn::IsXmlNestingAllowed(utf8)) {
    TraceLine(u"Elements are nested more than %u levels deep.", cvn::kDeepestXml);
    return false;
  }
  document->SetTabSize(keepsPlaces ? 1 : 0);
  document->Parse(utf8.c_str(), nullptr, TIXML_ENCODING_UTF8);
  return !document->Error();
}

cvn::String XmlToWide(std::string_view text) {
  // TinyXML has such a half in three bytes, like any character; in UTF-8 there is none.
  constexpr char kLead = '\xED';
  cvn::String wide;
  std::size_t at = 0;
  while ((at = text.find(kLead, at)) != std::string_view::npos) {
    if (text.size() - at < 3 || static_cast<unsigned char>(text[at + 1]) < 0xA0) {
      ++at;
      continue;
    }
    wide.Append(cvn::Utf8ToWide(text.substr(0, at)));
    wide.Append(static_cast<char16_t>(0xD000 | (text[at + 1] & 0x3F) << 6 | (text[at + 2] & 0x3F)));
    text.remove_prefix(at + 3);
    at = 0;
  }
  if (wide.Empty()) {
    return cvn::Utf8ToWide(text);
  }
  wide.Append(cvn::Utf8ToWide(text));
  return wide;
}

cvn::String XmlAttributeText(const TiXmlElement& element, const std::string& name) {
  const std::string* value = element.Attribute(name);
  return value == nullptr ? cvn::String() : XmlToWide(*value);
}

}  // namespace tessel
