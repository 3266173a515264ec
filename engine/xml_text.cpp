#include "engine/xml_text.h"

#include "support/utf.h"
#include "support/xml_nesting.h"
#include "trace/trace.h"

namespace tessel {

bool ParseXmlText(cvn::StringView text, TiXmlDocument* document) {
  return ParseXmlUtf8(cvn::WideToUtf8(text), document);
}

bool ParseXmlUtf8(const std::string& utf8, TiXmlDocument* document) {
  if (utf8.empty()) {
    return false;
  }
  if (!cvn::IsXmlNestingAllowed(utf8)) {
    TraceLine(u"Elements are nested more than %u levels deep.", cvn::kDeepestXml);
    return false;
  }
  // Nobody asks for rows and columns, and tracking them costs more than parsing.
  document->SetTabSize(0);
  document->Parse(utf8.c_str(), nullptr, TIXML_ENCODING_UTF8);
  return !document->Error();
}

cvn::String XmlAttributeText(const TiXmlElement& element, const std::string& name) {
  const std::string* value = element.Attribute(name);
  return value == nullptr ? cvn::String() : cvn::Utf8ToWide(*value);
}

}  // namespace tessel
