#include "commands/documents/ccvn_tiny_xml.h"

#include <algorithm>
#include <string_view>

#include "commands/documents/xml_printer.h"
#include "platform/error.h"
#include "platform/text_file.h"
#include "platform/whole_file.h"
#include "support/utf.h"
#include "support/xml_nesting.h"

namespace tessel {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Makes a file's bytes well-formed UTF-8, by its byte-order mark.
void Decode(std::string* bytes) {
  const bool bigEndian = bytes->starts_with("\xFE\xFF");
  if (bigEndian || bytes->starts_with("\xFF\xFE")) {
    bytes->resize((bytes->size() + 1) / 2 * 2);  // a file cut within a character ends in zeros
    *bytes = cvn::Utf16BytesToUtf8(*bytes, bigEndian);
  } else {
    cvn::RepairUtf8(bytes);
  }
}

// CR LF and a lone CR become LF.
void NormaliseLineEnds(std::string* text) {
  std::size_t to = text->find('\r');
  if (to == std::string::npos) {
    return;
  }
  for (std::size_t from = to; from < text->size(); ++from) {
    const char c = (*text)[from];
    if (c != '\r') {
      (*text)[to++] = c;
    } else {
      (*text)[to++] = '\n';
      from += from + 1 < text->size() && (*text)[from + 1] == '\n' ? 1 : 0;
    }
  }
  text->resize(to);
}

bool IsWithin(const TiXmlNode* node, const TiXmlNode& ancestor) {
  while (node != nullptr && node != &ancestor) {
    node = node->Parent();
  }
  return node != nullptr;
}

std::size_t DepthOf(const TiXmlNode* node) {
  std::size_t depth = 0;
  for (; node->Parent() != nullptr; node = node->Parent()) {
    ++depth;
  }
  return depth;
}

std::size_t HeightOf(const TiXmlNode& node) {
  std::size_t highest = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    highest = std::max(highest, HeightOf(*child));
  }
  return highest + 1;
}

}  // namespace

XmlElementHandle::~XmlElementHandle() {
  if (const auto document = document_.lock(); document != nullptr && element_ != nullptr) {
    document->handles_.erase(element_);
  }
}

std::shared_ptr<CCVNTinyXml> XmlElementHandle::Document() const {
  return element_ == nullptr ? nullptr : document_.lock();
}

bool CCVNTinyXml::Load(cvn::StringView path) {
  platform::SetLastError(platform::kSuccess);
  std::string text;
  if (platform::ReadWholeFile(path, &text) != platform::kSuccess) {
    return false;
  }
  Decode(&text);
  NormaliseLineEnds(&text);
  const char* start = text.c_str() + (text.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0);
  if (*start == '\0' || !cvn::IsXmlNestingAllowed(start)) {
    return false;
  }
  document_.SetTabSize(0);  // nobody asks for rows and columns
  document_.Parse(start, nullptr, TIXML_ENCODING_UTF8);
  return !document_.Error();
}

bool CCVNTinyXml::Save(cvn::StringView path) {
  platform::SetLastError(platform::kSuccess);
  std::string text = PrintXml(document_);
  cvn::RepairUtf8(&text);  // a reference may have named half a pair of surrogates
  return platform::SaveTextFile(path, text) == platform::kSuccess;
}

TiXmlElement* CCVNTinyXml::FindElement(TiXmlElement* context, const std::string& xpath) {
  if (xpath.empty()) {
    return nullptr;
  }
  const XPathMatch match = mirror_.FindFirst(context, xpath);
  return match.kind == XPathMatch::Kind::Element ? match.element : nullptr;
}

bool CCVNTinyXml::SetValue(TiXmlElement* context, const std::string& xpath,
                           const std::string& value) {
  if (xpath.empty()) {
    SetText(context, value);
    return true;
  }
  const XPathMatch match = mirror_.FindFirst(context, xpath);
  if (match.kind == XPathMatch::Kind::Element) {
    SetText(match.element, value);
    return true;
  }
  const std::size_t slash = xpath.rfind('/');
  if (slash != std::string::npos && slash + 2 < xpath.size() && xpath[slash + 1] == '@') {
    TiXmlElement* owner = FindElement(context, xpath.substr(0, slash));
    if (owner != nullptr) {
      return SetAttribute(owner, xpath.substr(slash + 2), value);
    }
  }
  return match.kind == XPathMatch::Kind::Attribute &&
         SetAttribute(match.element, match.attribute, value);
}

bool CCVNTinyXml::FitsBelow(const TiXmlElement& parent, const TiXmlElement& element) {
  return DepthOf(&parent) + HeightOf(element) <= cvn::kDeepestXml;
}

void CCVNTinyXml::AddChild(TiXmlElement* parent, const TiXmlElement& element, TiXmlElement* before,
                           TiXmlElement* after) {
  TiXmlNode* added = nullptr;
  if (before != nullptr) {
    added = parent->InsertBeforeChild(before, element);
  } else if (after != nullptr) {
    added = parent->InsertAfterChild(after, element);
  } else {
    added = parent->InsertEndChild(element);
  }
  if (added != nullptr) {
    mirror_.Added(added->ToElement());
  }
}

void CCVNTinyXml::Remove(TiXmlElement* element) {
  Forget(*element, true);
  mirror_.Removing(*element);
  element->Parent()->RemoveChild(element);
}

std::shared_ptr<XmlElementHandle> CCVNTinyXml::HandleTo(TiXmlElement* element) {
  std::weak_ptr<XmlElementHandle>& known = handles_[element];
  std::shared_ptr<XmlElementHandle> handle = known.lock();
  if (handle == nullptr) {
    handle = std::make_shared<XmlElementHandle>(weak_from_this(), element);
    known = handle;
  }
  return handle;
}

void CCVNTinyXml::SetText(TiXmlElement* element, const std::string& text) {
  Forget(*element, false);
  element->Clear();
  element->LinkEndChild(new TiXmlText(text));
  mirror_.TextSet(*element, text);
}

bool CCVNTinyXml::SetAttribute(TiXmlElement* element, const std::string& name,
                               const std::string& value) {
  element->SetAttribute(name, value);
  mirror_.AttributeSet(*element, name, value);
  return true;
}

void CCVNTinyXml::Forget(const TiXmlNode& node, bool itself) {
  std::erase_if(handles_, [&](const auto& entry) {
    if (!IsWithin(entry.first, node) || (!itself && entry.first == &node)) {
      return false;
    }
    if (const auto handle = entry.second.lock()) {
      handle->element_ = nullptr;
    }
    return true;
  });
}

}  // namespace tessel
