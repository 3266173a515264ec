#include "tools/tlx/script_schema.h"

#include <tinyxml.h>

#include <algorithm>
#include <initializer_list>
#include <set>
#include <span>
#include <utility>

#include "engine/loop_lowering.h"
#include "engine/script_command.h"
#include "support/containers.h"
#include "support/format.h"
#include "support/utf.h"

namespace tlx {
namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::CommandDescription;
using tessel::FunctionKind;
using tessel::Presence;

constexpr const char* kHead =
    "\n"
    "  The language of Tessel's scripts, for editors and for a first check. Made by 'tlx schema'.\n"
    "\n"
    "  It is narrower than the runner wherever the runner lets something pass that can only be a\n"
    "  slip. The root element is 'patch' and has a header. Numbers are decimal and of 32 bits "
    "(the\n"
    "  runner takes any text, and reads junk as 0), flags are true, false, 1 or 0 (for the runner\n"
    "  any other text is false), and where an attribute has a list of words, it is one of them.\n"
    "  Handlers stand on commands that enter them, and each but onerrorspec stands there once;\n"
    "  other elements, attributes and texts, which the runner passes over, aren't allowed.\n"
    "\n"
    "  It is wider where a schema can't say more: that 'data' is there as an attribute or as a\n"
    "  child, that the target of a jump exists, that a regular expression is well-formed. Ask\n"
    "  'tlx lint' for that.\n";

constexpr const char* kCommands = "Commands";
constexpr const char* kNonEmptyText = "NonEmptyText";
constexpr const char* kFlag = "Flag";
constexpr const char* kLabel = "Label";
constexpr const char* kData = "data";

using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

TiXmlElement* Add(TiXmlElement* parent, const char* name, const Attributes& attributes = {}) {
  auto* element = new TiXmlElement(name);
  for (const auto& [key, value] : attributes) {
    element->SetAttribute(key, value);
  }
  parent->LinkEndChild(element);
  return element;
}

// Adds documentation, a paragraph for each text that isn't empty.
void Document(TiXmlElement* element, std::initializer_list<cvn::StringView> paragraphs) {
  TiXmlElement* annotation = Add(element, "xs:annotation");
  for (const cvn::StringView paragraph : paragraphs) {
    if (!paragraph.empty()) {
      Add(annotation, "xs:documentation")->LinkEndChild(new TiXmlText(cvn::WideToUtf8(paragraph)));
    }
  }
}

void AddWords(TiXmlElement* simpleType, std::span<const cvn::StringView> words) {
  TiXmlElement* restriction = Add(simpleType, "xs:restriction", {{"base", "xs:string"}});
  for (const cvn::StringView word : words) {
    Add(restriction, "xs:enumeration", {{"value", cvn::WideToUtf8(word)}});
  }
}

// Any number of commands.
void AddCommandList(TiXmlElement* complexType) {
  Add(complexType, "xs:group",
      {{"ref", kCommands}, {"minOccurs", "0"}, {"maxOccurs", "unbounded"}});
}

cvn::String MeaningOf(const AttributeDescription& attribute) {
  cvn::String meaning(attribute.meaning);
  if (attribute.form == AttributeForm::Expanded) {
    meaning.Append(u" References such as %name% are replaced.");
  }
  if (!attribute.fallback.empty()) {
    meaning.Append(cvn::Format(u" When it is missing: `%s`.", attribute.fallback));
  }
  if (attribute.name == u"data") {
    meaning.Append(u" It can be the text of a child `data` instead.");
  }
  return meaning;
}

// The schema's type for an attribute; null for one of words.
const char* TypeOf(const AttributeDescription& attribute) {
  switch (attribute.form) {
    case AttributeForm::Number:
      return "xs:int";
    case AttributeForm::Flag:
      return kFlag;
    case AttributeForm::Choice:
      return nullptr;
    default:
      return attribute.presence == Presence::NonEmpty ? kNonEmptyText : "xs:string";
  }
}

void AddAttributes(TiXmlElement* complexType, const CommandDescription& description) {
  for (const AttributeDescription& attribute : description.attributes) {
    TiXmlElement* element =
        Add(complexType, "xs:attribute", {{"name", cvn::WideToUtf8(attribute.name)}});
    const char* type = TypeOf(attribute);
    if (type != nullptr) {
      element->SetAttribute("type", type);
    }
    if (attribute.presence != Presence::Optional && attribute.name != u"data") {
      element->SetAttribute("use", "required");
    }
    Document(element, {MeaningOf(attribute)});
    if (type == nullptr) {
      AddWords(Add(element, "xs:simpleType"), attribute.choices);
    }
  }
}

cvn::String FailuresOf(const CommandDescription& description) {
  cvn::String text;
  for (const tessel::FailureDescription& failure : description.failures) {
    text.Append(text.Empty() ? u"Fails with: " : u"; ");
    text.Append(failure.text.empty() ? cvn::String(failure.meaning)
                                     : cvn::Format(u"`%s`, %s", failure.text, failure.meaning));
  }
  if (!text.Empty()) {
    text.Append(u".");
  }
  return text;
}

// What stands in a command's element.
struct Content {
  FunctionKind kind;
  bool hasData;

  // The check takes the zero in what the compiler makes of this for a null pointer.
  auto operator<=>(const Content&) const = default;  // NOLINT(modernize-use-nullptr)
};

// The group that holds it; empty for nothing.
std::string GroupOf(const Content& content) {
  std::string name;
  if (content.kind == FunctionKind::ErrorResult) {
    name = "ErrorHandlers";
  } else if (content.kind == FunctionKind::BoolResult) {
    name = "BoolHandlers";
  }
  return name + (content.hasData ? "Data" : "");
}

// Lets each of `once` stand once at most, in any order, with any number of `many` around them; an
// empty `many` is none. This kind of schema has to be told each order.
void AddAnyOrder(TiXmlElement* sequence, const std::string& many,
                 const cvn::List<std::string>& once) {
  if (!many.empty()) {
    Add(sequence, "xs:element",
        {{"name", many}, {"type", many}, {"minOccurs", "0"}, {"maxOccurs", "unbounded"}});
  }
  if (once.empty()) {
    return;
  }
  TiXmlElement* choice = Add(sequence, "xs:choice", {{"minOccurs", "0"}});
  for (const std::string& name : once) {
    TiXmlElement* rest = Add(choice, "xs:sequence");
    Add(rest, "xs:element", {{"name", name}, {"type", name}});
    cvn::List<std::string> others = once;
    std::erase(others, name);
    AddAnyOrder(rest, many, others);
  }
}

void AddContentGroup(TiXmlElement* schema, const Content& content) {
  std::string many;
  cvn::List<std::string> once;
  for (const std::string name : tessel::HandlerNames(content.kind)) {
    if (name == tessel::kOnErrorSpec) {
      many = name;
    } else {
      once.push_back(name);
    }
  }
  if (content.hasData) {
    once.push_back(kData);
  }
  TiXmlElement* group = Add(schema, "xs:group", {{"name", GroupOf(content)}});
  AddAnyOrder(Add(group, "xs:sequence"), many, once);
}

Content ContentOf(const tessel::CommandRecord& record) {
  const auto attributes = record.description->attributes;
  return {record.kind,
          std::ranges::find(attributes, u"data", &AttributeDescription::name) != attributes.end()};
}

// Adds the element of a command or a loop, and gives its type.
TiXmlElement* AddElement(TiXmlElement* parent, cvn::StringView name,
                         const CommandDescription& description) {
  TiXmlElement* element = Add(parent, "xs:element", {{"name", cvn::WideToUtf8(name)}});
  Document(element, {description.purpose, description.notes, FailuresOf(description)});
  return Add(element, "xs:complexType");
}

void AddCommands(TiXmlElement* schema) {
  std::set<Content> contents;
  TiXmlElement* choice = Add(Add(schema, "xs:group", {{"name", kCommands}}), "xs:choice");
  for (const tessel::LoopRecord& loop : tessel::AllLoops()) {
    TiXmlElement* type = AddElement(choice, loop.name, loop.description);
    AddCommandList(type);
    AddAttributes(type, loop.description);
  }
  for (const auto& [name, record] : tessel::AllCommands()) {
    TiXmlElement* type = AddElement(choice, name, *record.description);
    const Content content = ContentOf(record);
    if (const std::string group = GroupOf(content); !group.empty()) {
      Add(type, "xs:group", {{"ref", group}});
      contents.insert(content);
    }
    AddAttributes(type, *record.description);
    Add(type, "xs:attributeGroup", {{"ref", kLabel}});
  }
  for (const Content& content : contents) {
    AddContentGroup(schema, content);
  }
}

void AddHandlers(TiXmlElement* schema) {
  const std::pair<std::string, cvn::StringView> handlers[] = {
      {tessel::kOnErrorSpec, u"Runs when the command fails with the text in `err`."},
      {tessel::kOnError, u"Runs when the command fails, and no `onerrorspec` has its text."},
      {tessel::kOnSuccess, u"Runs when the command succeeds."},
      {tessel::kOnTrue, u"Runs when the answer is yes."},
      {tessel::kOnFalse, u"Runs when the answer is no."},
  };
  for (const auto& [name, meaning] : handlers) {
    TiXmlElement* type = Add(schema, "xs:complexType", {{"name", name}});
    Document(type, {meaning, u"Afterwards the run goes on behind the command."});
    AddCommandList(type);
    if (name == tessel::kOnErrorSpec) {
      TiXmlElement* failure = Add(type, "xs:attribute",
                                  {{"name", "err"}, {"type", kNonEmptyText}, {"use", "required"}});
      Document(failure, {u"The exact text of the failure: a code, or words. Used as written."});
    }
  }
}

void AddTypes(TiXmlElement* schema) {
  TiXmlElement* nonEmpty = Add(schema, "xs:simpleType", {{"name", kNonEmptyText}});
  Add(Add(nonEmpty, "xs:restriction", {{"base", "xs:string"}}), "xs:minLength", {{"value", "1"}});

  constexpr cvn::StringView kFlagWords[] = {u"true", u"false", u"1", u"0"};
  AddWords(Add(schema, "xs:simpleType", {{"name", kFlag}}), kFlagWords);

  TiXmlElement* data = Add(schema, "xs:simpleType", {{"name", kData}});
  Document(data, {u"The text of the attribute `data`, for a long one or one with line ends. It "
                  u"doesn't count when the attribute is there too."});
  Add(data, "xs:restriction", {{"base", "xs:string"}});

  TiXmlElement* group = Add(schema, "xs:attributeGroup", {{"name", kLabel}});
  TiXmlElement* label = Add(group, "xs:attribute", {{"name", "id"}, {"type", kNonEmptyText}});
  Document(label,
           {u"A label for `goto` and `onErrorGoTo`. No other command of the script has it."});
}

void AddHeader(TiXmlElement* patchContent) {
  TiXmlElement* header = Add(patchContent, "xs:element", {{"name", "header"}});
  Document(header, {u"What the patch is, and how long it is good for."});
  TiXmlElement* list = Add(Add(header, "xs:complexType"), "xs:sequence");
  TiXmlElement* property = Add(
      list, "xs:element", {{"name", "property"}, {"minOccurs", "0"}, {"maxOccurs", "unbounded"}});
  TiXmlElement* type = Add(property, "xs:complexType");
  TiXmlElement* name = Add(type, "xs:attribute", {{"name", "name"}, {"use", "required"}});
  Document(name,
           {u"`id`; `patchType`, which is `external` or `update`; `created`, in seconds since "
            u"1970; `expires`, in days; `tags`. Others are passed over."});
  TiXmlElement* either =
      Add(Add(name, "xs:simpleType"), "xs:union", {{"memberTypes", "xs:string"}});
  constexpr cvn::StringView kNames[] = {u"id", u"patchType", u"created", u"expires", u"tags"};
  AddWords(Add(either, "xs:simpleType"), kNames);
  Add(type, "xs:attribute", {{"name", "value"}, {"type", "xs:string"}, {"use", "required"}});
}

void AddPatch(TiXmlElement* schema) {
  TiXmlElement* patch = Add(schema, "xs:element", {{"name", "patch"}});
  TiXmlElement* type = Add(patch, "xs:complexType");
  TiXmlElement* content = Add(type, "xs:all");
  AddHeader(content);
  TiXmlElement* script = Add(content, "xs:element", {{"name", "script"}});
  Document(script, {u"The commands, which run one after the other."});
  TiXmlElement* scriptType = Add(script, "xs:complexType");
  AddCommandList(scriptType);
  TiXmlElement* log = Add(scriptType, "xs:attribute", {{"name", "log"}, {"type", "xs:string"}});
  Document(log, {u"A file for the trace, from the load on. References such as %name% are "
                 u"replaced."});
  TiXmlElement* version = Add(type, "xs:attribute", {{"name", "version"}, {"use", "required"}});
  Document(version, {u"The version of the language, `1.0`."});
  TiXmlElement* number = Add(version, "xs:simpleType");
  Add(Add(number, "xs:restriction", {{"base", "xs:string"}}), "xs:pattern",
      {{"value", "1(\\.[0-9]+)?"}});
  TiXmlElement* labels = Add(patch, "xs:unique", {{"name", "Labels"}});
  Add(labels, "xs:selector", {{"xpath", ".//*"}});
  Add(labels, "xs:field", {{"xpath", "@id"}});
}

}  // namespace

std::string ScriptSchema() {
  TiXmlDocument document;
  document.LinkEndChild(new TiXmlDeclaration("1.0", "UTF-8", ""));
  document.LinkEndChild(new TiXmlComment(kHead));
  auto* schema = new TiXmlElement("xs:schema");
  document.LinkEndChild(schema);
  schema->SetAttribute("xmlns:xs", "http://www.w3.org/2001/XMLSchema");
  AddPatch(schema);
  AddCommands(schema);
  AddHandlers(schema);
  AddTypes(schema);
  TiXmlPrinter printer;
  printer.SetIndent("  ");
  document.Accept(&printer);
  return printer.Str();
}

}  // namespace tlx
