#include "commands/documents/ccvn_tiny_xml.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "commands/documents/xml_check.h"
#include "commands/documents/xml_marks.h"
#include "commands/documents/xml_name.h"
#include "commands/documents/xml_printer.h"
#include "commands/documents/xml_shield.h"
#include "engine/xml_text.h"
#include "platform/error.h"
#include "platform/text_file.h"
#include "platform/whole_file.h"
#include "support/utf.h"
#include "support/xml_nesting.h"

namespace tessel {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Whether each half of a surrogate pair in UTF-16 has the other.
bool HasWholePairs(std::string_view bytes, bool bigEndian) {
  bool isOpen = false;
  for (std::size_t at = bigEndian ? 0 : 1; at < bytes.size(); at += 2) {
    const int kind = static_cast<unsigned char>(bytes[at]) & 0xFC;
    if (isOpen != (kind == 0xDC)) {
      return false;
    }
    isOpen = kind == 0xD8;
  }
  return !isOpen;
}

// Makes a file's bytes well-formed UTF-8, by its byte-order mark. False when some had to be
// replaced.
bool Decode(std::string* bytes) {
  const bool bigEndian = bytes->starts_with("\xFE\xFF");
  if (bigEndian || bytes->starts_with("\xFF\xFE")) {
    bytes->resize((bytes->size() + 1) / 2 * 2);  // a file cut within a character ends in zeros
    const bool isWhole = HasWholePairs(*bytes, bigEndian);
    *bytes = cvn::Utf16BytesToUtf8(*bytes, bigEndian);
    return isWhole;
  }
  if (cvn::IsValidUtf8(*bytes)) {
    return true;
  }
  cvn::RepairUtf8(bytes);
  return false;
}

// Takes the zeros at the end away, with which files are filled up. False when there are others: the
// text would end there.
bool TakeZerosOff(std::string* text) {
  text->resize(text->find_last_not_of('\0') + 1);
  return text->find('\0') == std::string::npos;
}

// Whether TinyXML made of a text what another parser makes of it, which takes no U+007F in a name.
bool IsReadRight(std::string text, const TiXmlDocument& document) {
  for (std::size_t at = 0; (at = text.find('\x7F', at)) != std::string::npos; ++at) {
    text[at] = kDeleteMark;
  }
  return HasSameXml(std::move(text), document);
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
  loadedSize_ = text.size();
  isRepaired_ = !Decode(&text);
  if (!TakeZerosOff(&text)) {
    return false;
  }
  NormaliseLineEnds(&text);
  text.erase(0, text.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0);
  ShieldedXml shielded;
  if (text.empty() || !ShieldXml(std::move(text), XmlPart::Document, &shielded) ||
      !cvn::IsXmlNestingAllowed(shielded.text)) {
    return false;
  }
  document_.SetTabSize(0);  // nobody asks for rows and columns
  document_.Parse(shielded.text.c_str(), nullptr, TIXML_ENCODING_UTF8);
  const bool isComplete = !document_.Error() && IsReadRight(std::move(shielded.text), document_);
  RestoreKept(shielded, &document_);
  return isComplete;
}

bool CCVNTinyXml::Save(cvn::StringView path) {
  platform::SetLastError(platform::kSuccess);
  mirror_.GiveWay();
  std::string text = PrintXml(document_, loadedSize_ + loadedSize_ / 8);
  // The check takes the text to pieces, so that is written before. When both fail, the check's code
  // counts.
  platform::OutputTextFile file(path);
  const platform::Code written = isRepaired_ ? kInvalidData : file.Write(text);
  if (isRepaired_ || !IsWholeDocument(std::move(text))) {
    platform::SetLastError(kInvalidData);
    return false;
  }
  platform::SetLastError(written);
  return written == platform::kSuccess && file.Commit() == platform::kSuccess;
}

bool CCVNTinyXml::IsWholeDocument(std::string text) const {
  const TiXmlElement* root = document_.RootElement();
  return root != nullptr && root->NextSiblingElement() == nullptr &&
         IsShieldableXml(text, XmlPart::Document) && HasSameXml(std::move(text), document_);
}

TiXmlElement* CCVNTinyXml::ParseElement(cvn::StringView text, TiXmlDocument* document) {
  constexpr char16_t kMark = 0xFEFF;
  text.remove_prefix(text.starts_with(kMark) ? 1 : 0);
  ShieldedXml shielded;
  if (!ShieldXml(cvn::WideToUtf8(text), XmlPart::Element, &shielded) ||
      !ParseXmlUtf8(shielded.text, document)) {
    return nullptr;
  }
  TiXmlElement* element = document->RootElement();
  shielded.text.resize(shielded.size);
  if (element == nullptr || !HasSameXml(std::move(shielded.text), *element)) {
    return nullptr;
  }
  RestoreKept(shielded, document);
  return element;
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
  if (slash != std::string::npos && xpath.substr(slash + 1).starts_with('@') &&
      IsXmlName(cvn::Utf8ToWide(xpath.substr(slash + 2)))) {
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
