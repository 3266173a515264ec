#include "commands/documents/xml.h"

#include "commands/documents/ccvn_tiny_xml.h"
#include "engine/variable_store.h"
#include "engine/xml_text.h"
#include "platform/error.h"
#include "support/utf.h"
#include "support/xml_nesting.h"
#include "trace/trace.h"

namespace tessel {
namespace {

constexpr std::uint32_t kInvalidData = 13;

// Where an expression starts: the root element of a document, or the element that a handle holds.
struct XmlContext {
  std::shared_ptr<CCVNTinyXml> document;
  TiXmlElement* element = nullptr;
  std::uint32_t code = platform::kInvalidHandle;  // 0 when there is an element
};

XmlContext ResolveHandle(const cvn::String& handle, const ObjectStore& objects) {
  XmlContext context;
  const ObjectRecord* record = objects.Find(handle);
  if (record == nullptr) {
    return context;
  }
  if (record->type == ObjectType::XmlDocument) {
    context.document = std::static_pointer_cast<CCVNTinyXml>(record->pointer);
    context.element = context.document->GetRootElement();
    context.code = context.element == nullptr ? platform::kNotFound : platform::kSuccess;
  } else if (record->type == ObjectType::XmlElement) {
    const auto* held = static_cast<const XmlElementHandle*>(record->pointer.get());
    context.document = held->Document();
    if (context.document != nullptr) {
      context.element = held->Element();
      context.code = platform::kSuccess;
    }
  }
  return context;
}

std::uint32_t LastErrorOr(std::uint32_t code) {
  const std::uint32_t last = platform::LastError();
  return last == platform::kSuccess ? code : last;
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

void FunctionXmlOpen::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"xmlOpen from '%s'.handle: %s", path, handle_);
  auto document = std::make_shared<CCVNTinyXml>();
  if (document->Load(path)) {
    SetObject(handle_, document, ObjectType::XmlDocument, objects);
  } else {
    ReportCode(LastErrorOr(platform::kFileNotFound));
  }
  TraceEnd(u"xmlOpen");
}

void FunctionXmlClose::Execute() {
  TraceLine(u"xmlClose for handle: %s", handle_);
  CloseHandle();
}

void FunctionXmlSave::Execute() {
  const cvn::String path = ExpandVariables(path_, variables);
  TraceLine(u"xmlSave in '%s'.handle: %s", path, handle_);
  const ObjectRecord* record = objects->Find(handle_);
  if (record == nullptr || record->type != ObjectType::XmlDocument) {
    ReportCode(platform::kInvalidHandle);
  } else if (!static_cast<CCVNTinyXml*>(record->pointer.get())->Save(path)) {
    ReportCode(LastErrorOr(platform::kWriteFault));
  }
  TraceEnd(u"xmlSave");
}

bool FunctionXmlAddChild::Parse() {
  ReadAttribute(u"insert_before", &insertBefore_);
  ReadAttribute(u"insert_after", &insertAfter_);
  ReadAttribute(u"cdata", &cdata_);
  return ReadNonEmpty(u"xpath", &xpath_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadNonEmpty(u"data", &data_);
}

void FunctionXmlAddChild::Execute() {
  const cvn::String data = ExpandVariables(data_, variables);
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  const std::string before = cvn::WideToUtf8(ExpandVariables(insertBefore_, variables));
  const std::string after = cvn::WideToUtf8(ExpandVariables(insertAfter_, variables));
  const std::string cdata = cvn::WideToUtf8(ExpandVariables(cdata_, variables));
  TraceLine(u"xmlAddChild in '%s' at '%s'. xml: '%s'", handle_, xpath, data);
  ReportCode(AddChild(data, cvn::WideToUtf8(xpath), before, after, cdata));
  TraceEnd(u"xmlAddChild");
}

std::uint32_t FunctionXmlAddChild::AddChild(const cvn::String& data, const std::string& xpath,
                                            const std::string& before, const std::string& after,
                                            const std::string& cdata) {
  TiXmlDocument parsed;
  if (!ParseXmlText(data, &parsed) || parsed.RootElement() == nullptr) {
    return kInvalidData;
  }
  TiXmlElement* added = parsed.RootElement();
  const XmlContext context = ResolveHandle(handle_, *objects);
  if (context.code != platform::kSuccess) {
    return context.code;
  }
  TiXmlElement* target = context.document->FindElement(context.element, xpath);
  TiXmlElement* beforeElement = context.document->FindElement(context.element, before);
  TiXmlElement* afterElement = context.document->FindElement(context.element, after);
  if (target == nullptr) {
    return platform::kPathNotFound;
  }
  if (DepthOf(target) + HeightOf(*added) > cvn::kDeepestXml) {
    return kInvalidData;
  }
  if (!cdata.empty()) {
    auto* text = new TiXmlText(cdata);
    text->SetCDATA(true);
    added->LinkEndChild(text);
  }
  context.document->AddChild(target, *added, beforeElement, afterElement);
  return platform::kSuccess;
}

bool FunctionXmlRemoveChild::Parse() {
  return ReadNonEmpty(u"xpath", &xpath_) && ReadNonEmpty(u"handle", &handle_);
}

void FunctionXmlRemoveChild::Execute() {
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  TraceLine(u"xmlRemoveChild in '%s' at '%s'", handle_, xpath);
  const XmlContext context = ResolveHandle(handle_, *objects);
  if (context.code == platform::kSuccess) {
    TiXmlElement* element = context.document->FindElement(context.element, cvn::WideToUtf8(xpath));
    if (element == nullptr || element->Parent() == nullptr) {
      ReportCode(platform::kNotFound);
    } else {
      context.document->Remove(element);
    }
  } else {
    ReportCode(context.code);
  }
  TraceEnd(u"xmlRemoveChild");
}

bool FunctionXmlSetValue::Parse() {
  return ReadNonEmpty(u"xpath", &xpath_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadAttribute(u"value", &value_);
}

void FunctionXmlSetValue::Execute() {
  const cvn::String value = ExpandVariables(value_, variables);
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  TraceLine(u"xmlSetValue in '%s' at '%s'. value: '%s'", handle_, xpath, value);
  const XmlContext context = ResolveHandle(handle_, *objects);
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else if (!context.document->SetValue(context.element, cvn::WideToUtf8(xpath),
                                         cvn::WideToUtf8(value))) {
    ReportCode(platform::kNotFound);
  }
  TraceEnd(u"xmlSetValue");
}

void FunctionXmlSetCDataValue::Execute() {
  hasError = false;
  error = cvn::String();
  const cvn::String value = ExpandVariables(value_, variables);
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  TraceLine(u"xmlSetValue in '%s' at '%s'. value: '%s'", handle_, xpath, value);
  const ObjectRecord* record = objects->Find(handle_);
  const XmlContext context = ResolveHandle(handle_, *objects);
  if (record != nullptr && record->type != ObjectType::XmlDocument &&
      record->type != ObjectType::XmlElement) {
    Fail(u"Invalid handle type");
  } else if (context.code == platform::kNotFound) {
    Fail(u"Could not convert to XML handle type");
  } else if (context.code != platform::kSuccess) {
    Fail(u"Invalid handle value");
  } else if (!context.document->SetValue(context.element, cvn::WideToUtf8(xpath),
                                         cvn::WideToUtf8(value))) {
    Fail(u"Could not set value");
  }
  TraceEnd(u"xmlSetCDataValue");
}

void FunctionXmlSetCDataValue::Fail(cvn::StringView words) {
  error = words;
  hasError = true;
}

bool FunctionXmlGetValue::Parse() {
  return ReadNonEmpty(u"xpath", &xpath_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadAttribute(u"var", &var_);
}

void FunctionXmlGetValue::Execute() {
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  TraceLine(u"xmlGetValue in '%s' at '%s'. variable: '%s'", handle_, xpath, var_);
  const XmlContext context = ResolveHandle(handle_, *objects);
  std::string text;
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else if (!context.document->EvaluateText(context.element, cvn::WideToUtf8(xpath), &text)) {
    ReportCode(platform::kPathNotFound);
  } else {
    SetVariable(var_, cvn::Utf8ToWide(text), variables);
  }
  TraceEnd(u"xmlGetValue");
}

bool FunctionXmlGetElement::Parse() {
  return ReadNonEmpty(u"xpath", &xpath_) && ReadNonEmpty(u"handle", &handle_) &&
         ReadNonEmpty(u"destHandle", &destHandle_);
}

void FunctionXmlGetElement::Execute() {
  const cvn::String xpath = ExpandVariables(xpath_, variables);
  TraceLine(u"xmlGetElement in '%s' at '%s'. destHandle: '%s'", handle_, xpath, destHandle_);
  const XmlContext context = ResolveHandle(handle_, *objects);
  if (context.code != platform::kSuccess) {
    ReportCode(context.code);
  } else {
    TiXmlElement* element =
        xpath.Empty() ? context.element
                      : context.document->FindElement(context.element, cvn::WideToUtf8(xpath));
    if (element == nullptr) {
      ReportCode(platform::kPathNotFound);
    } else {
      SetObject(destHandle_, context.document->HandleTo(element), ObjectType::XmlElement, objects);
    }
  }
  TraceEnd(u"xmlGetValue");
}

}  // namespace tessel
