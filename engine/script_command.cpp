#include "engine/script_command.h"

#include <algorithm>

#include "engine/variable_store.h"
#include "engine/xml_text.h"
#include "support/utf.h"

namespace tessel {
namespace {

constexpr const char* kErrorHandlers[] = {kOnErrorSpec, kOnError, kOnSuccess};
constexpr const char* kBoolHandlers[] = {kOnTrue, kOnFalse};

// The text of an element's first child, when that is a text.
cvn::String FirstText(const TiXmlElement& element) {
  const TiXmlNode* child = element.FirstChild();
  const TiXmlText* text = child == nullptr ? nullptr : child->ToText();
  return text == nullptr ? cvn::String() : XmlToWide(text->ValueStr());
}

}  // namespace

std::span<const char* const> HandlerNames(FunctionKind kind) {
  switch (kind) {
    case FunctionKind::ErrorResult:
      return kErrorHandlers;
    case FunctionKind::BoolResult:
      return kBoolHandlers;
    case FunctionKind::Plain:
    case FunctionKind::ExitResult:
      break;
  }
  return {};
}

bool HasHandler(FunctionKind kind, std::string_view name) {
  const auto names = HandlerNames(kind);
  return std::find(names.begin(), names.end(), name) != names.end();
}

void CopyAttributes(const TiXmlElement& element, AttributeMap* attributes) {
  for (const TiXmlAttribute* at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
    attributes->Add(cvn::Utf8ToWide(at->NameTStr()), XmlToWide(at->ValueStr()));
  }
  const TiXmlElement* data = element.FirstChildElement("data");
  if (data != nullptr) {
    attributes->Add(u"data", FirstText(*data));
  }
}

std::unique_ptr<FunctionBase> MakeCommand(const cvn::String& name, const CommandRecord& record,
                                          const TiXmlElement& element) {
  std::unique_ptr<FunctionBase> command = record.factory();
  if (command != nullptr) {
    command->variables = &ProcessVariables();
    command->objects = &ProcessObjects();
    command->kind = record.kind;
    command->keepsToRegistry = record.family->keepsToRegistry;
    command->name = name;
    CopyAttributes(element, &command->attributes);
  }
  return command;
}

}  // namespace tessel
