#include "tools/tlx/script_reading.h"

#include <algorithm>
#include <span>
#include <tuple>
#include <utility>

#include "engine/builtin_variables.h"
#include "engine/script_command.h"
#include "engine/xml_text.h"
#include "platform/formats/environment_names.h"
#include "support/format.h"
#include "support/numbers.h"
#include "tools/tlx/attribute_lint.h"
#include "tools/tlx/references.h"
#include "tools/tlx/script_flow.h"

namespace tlx {
namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::AttributeMap;
using tessel::Subject;
using tessel::Use;

constexpr cvn::StringView kLoops = u"Loops";
// As the registry editor calls a value without a name.
constexpr cvn::StringView kDefaultValue = u"(Default)";

// What the elements of an array share.
cvn::String StoredName(cvn::StringView name) {
  const VariableName parts = ElementName(name);
  cvn::String stored(parts.name);
  if (!parts.index.empty()) {
    stored.Append(u"[]");
  }
  return stored;
}

void AddLine(std::size_t line, ScriptLines* lines) {
  if (lines->empty() || lines->back() != line) {
    lines->push_back(line);
  }
}

bool IsBuiltin(cvn::StringView name) {
  static const cvn::List<cvn::StringView> names = tessel::BuiltinVariables();
  return std::ranges::find(names, name) != names.end() ||
         cvn::EqualNoCase(name, tessel::kRandomVariable);
}

// The name of which the texts are the reference and its escaped form, which a 'test' compares to
// learn whether there is such a variable; empty when they aren't.
cvn::StringView NameAskedFor(cvn::StringView reference, cvn::StringView escaped) {
  const bool isAsked = reference.size() > 2 && FindReference(reference) == reference &&
                       escaped.size() == reference.size() + 2 && escaped.starts_with(u'%') &&
                       escaped.ends_with(u'%') && escaped.substr(1, reference.size()) == reference;
  return isAsked ? reference.substr(1, reference.size() - 2) : cvn::StringView();
}

// A command or a loop, with its attributes.
struct Reader {
  explicit Reader(const FlowCommand& command)
      : line(static_cast<std::size_t>(command.element->Row())),
        description(command.record != nullptr ? command.record->description
                                              : tessel::DescriptionOf(command.loop)) {
    tessel::CopyAttributes(*command.element, &attributes);
  }

  cvn::StringView ValueOf(const AttributeDescription& attribute) const {
    const cvn::String* value = attributes.Find(attribute.name);
    return value == nullptr ? attribute.fallback : value->AsView();
  }

  std::span<const AttributeDescription> Described() const {
    return description == nullptr ? std::span<const AttributeDescription>()
                                  : description->attributes;
  }

  std::size_t line;
  const tessel::CommandDescription* description;  // null for a command that there isn't
  AttributeMap attributes;
};

class ScriptReader {
 public:
  ScriptReader(const TiXmlElement& script, bool isFaulty)
      : script_(script), isFaulty_(isFaulty), flow_(script) {}

  ScriptReading Read() {
    // What is set somewhere has to be known before references are told from other texts.
    ForEachReached([this](const FlowCommand& command) { NoteSetVariables(command); });
    ReadLog();
    ForEachReached([this](const FlowCommand& command) { ReadCommand(command); });
    reading_.mayRunOffTheEnd = flow_.Commands().empty() ||
                               std::ranges::any_of(flow_.Commands(), [this](const auto& command) {
                                 return flow_.MayEndBehind(command);
                               });
    CountCommands();
    for (auto& [name, variable] : reading_.variables) {
      variable.origin = OriginOf(name);
    }
    return std::move(reading_);
  }

 private:
  template <typename Function>
  void ForEachReached(Function function) {
    for (const FlowCommand& command : flow_.Commands()) {
      if (command.isReached || isFaulty_) {
        function(command);
      }
    }
  }

  void NoteSetVariables(const FlowCommand& command);
  void NoteQuestion(const Reader& reader);
  void ReadLog();
  void ReadCommand(const FlowCommand& command);
  void ReadExit(const FlowCommand& command, std::size_t line);
  void NoteReferences(cvn::StringView text, std::size_t line);
  void ReadTouches(const Reader& reader);
  cvn::String NameTouched(const Reader& reader, const AttributeDescription& attribute,
                          Touch* touch);
  void AddDeciders(cvn::StringView text, Touch* touch);
  void AddTouch(Touch touch, std::size_t line);
  cvn::List<cvn::StringView> Names(cvn::StringView text) const;
  VariableOrigin OriginOf(cvn::StringView name) const;
  void CountCommands();

  const TiXmlElement& script_;
  const bool isFaulty_;
  ScriptFlow flow_;
  ScriptReading reading_;
  cvn::Map<std::tuple<Subject, Use, cvn::StringView, cvn::String>, std::size_t> places_;
};

void ScriptReader::NoteSetVariables(const FlowCommand& command) {
  const Reader reader(command);
  for (const AttributeDescription& attribute : reader.Described()) {
    const cvn::StringView name = reader.ValueOf(attribute);
    if (attribute.form == AttributeForm::Variable && !name.empty()) {
      VariableReading& variable = reading_.variables[StoredName(name)];
      AddLine(reader.line, &variable.setIn);
      const cvn::String* text = reader.attributes.Find(u"value");
      variable.text.reset();
      if (++variable.setters == 1 && command.element->ValueStr() == "assign" && text != nullptr) {
        variable.text = *text;
      }
    }
  }
  if (command.element->ValueStr() == "test") {
    NoteQuestion(reader);
  }
}

void ScriptReader::NoteQuestion(const Reader& reader) {
  const cvn::String* left = reader.attributes.Find(u"left");
  const cvn::String* right = reader.attributes.Find(u"right");
  if (left == nullptr || right == nullptr) {
    return;
  }
  for (const cvn::StringView name : {NameAskedFor(*left, *right), NameAskedFor(*right, *left)}) {
    if (!name.empty()) {
      reading_.variables[StoredName(name)].isAskedFor = true;
    }
  }
}

// The trace goes on in that file before any command runs.
void ScriptReader::ReadLog() {
  Touch touch{.subject = Subject::File, .use = Use::Change};
  touch.name = tessel::XmlAttributeText(script_, "log");
  const auto line = static_cast<std::size_t>(script_.Row());
  NoteReferences(touch.name, line);
  AddDeciders(touch.name, &touch);
  AddTouch(std::move(touch), line);
}

void ScriptReader::ReadCommand(const FlowCommand& command) {
  const Reader reader(command);
  if (command.record != nullptr && command.record->kind == tessel::FunctionKind::ExitResult) {
    ReadExit(command, reader.line);
  }
  for (const AttributeDescription& attribute : reader.Described()) {
    const cvn::StringView value = reader.ValueOf(attribute);
    if (attribute.form == AttributeForm::Expanded) {
      NoteReferences(value, reader.line);
    } else if (attribute.form == AttributeForm::Variable) {
      NoteReferences(ElementName(value).index, reader.line);
    }
  }
  ReadTouches(reader);
}

// As the engine reads the code.
void ScriptReader::ReadExit(const FlowCommand& command, std::size_t line) {
  const auto made =
      tessel::MakeCommand(NameOf(*command.element), *command.record, *command.element);
  if (made != nullptr && made->Parse(*command.record->description)) {
    AddLine(line, &reading_.exits[static_cast<tessel::FunctionRetExit&>(*made).GetExitCode()]);
  }
}

void ScriptReader::NoteReferences(cvn::StringView text, std::size_t line) {
  for (const cvn::StringView name : Names(text)) {
    AddLine(line, &reading_.variables[StoredName(name)].readIn);
  }
}

void ScriptReader::ReadTouches(const Reader& reader) {
  if (reader.description == nullptr) {
    return;
  }
  cvn::StringView deferredBy;
  for (const AttributeDescription& attribute : reader.Described()) {
    if (attribute.defers && tessel::IsFlagOn(reader.ValueOf(attribute))) {
      deferredBy = attribute.name;
    }
  }
  for (const AttributeDescription& attribute : reader.Described()) {
    if (attribute.subject == Subject::None) {
      continue;
    }
    Touch touch{.subject = attribute.subject, .use = attribute.use};
    touch.name = NameTouched(reader, attribute, &touch);
    if (attribute.use != Use::Read) {
      touch.deferredBy = deferredBy;
    }
    AddTouch(std::move(touch), reader.line);
  }
  const tessel::FixedSubject& fixed = reader.description->fixedSubject;
  if (fixed.subject != Subject::None) {
    AddTouch({.subject = fixed.subject, .use = fixed.use, .name = fixed.name}, reader.line);
  }
}

// Also says in `touch` what decides on the name.
cvn::String ScriptReader::NameTouched(const Reader& reader, const AttributeDescription& attribute,
                                      Touch* touch) {
  const cvn::StringView value = reader.ValueOf(attribute);
  if (attribute.form == AttributeForm::Expanded) {
    AddDeciders(value, touch);
  }
  const auto front =
      std::ranges::find(reader.Described(), attribute.front, &AttributeDescription::name);
  if (front == reader.Described().end()) {
    return value;
  }
  cvn::String name = NameTouched(reader, *front, touch);
  const bool isDefaultValue = value.empty() && attribute.subject == Subject::RegistryValue;
  if (value.empty() && !isDefaultValue) {
    return name;
  }
  if (!name.Empty() && !name.AsView().ends_with(attribute.joint)) {
    name.Append(attribute.joint);
  }
  name.Append(isDefaultValue ? kDefaultValue : value);
  return name;
}

void ScriptReader::AddDeciders(cvn::StringView text, Touch* touch) {
  for (const cvn::StringView name : Names(text)) {
    const cvn::String stored = StoredName(name);
    (OriginOf(stored) == VariableOrigin::Machine ? touch->decidedByMachine
                                                 : touch->decidedByVariables)
        .insert(stored);
  }
}

void ScriptReader::AddTouch(Touch touch, std::size_t line) {
  if (touch.name.Empty()) {
    return;
  }
  const auto [place, isNew] = places_.try_emplace(
      {touch.subject, touch.use, touch.deferredBy, touch.name}, reading_.touches.size());
  if (isNew) {
    reading_.touches.push_back(std::move(touch));
  }
  AddLine(line, &reading_.touches[place->second].lines);
}

// Of a name, and of what stands for it among the variables.
VariableOrigin ScriptReader::OriginOf(cvn::StringView name) const {
  const auto found = reading_.variables.find(name);
  if (found != reading_.variables.end() && !found->second.setIn.empty()) {
    return VariableOrigin::Script;
  }
  if (IsBuiltin(name)) {
    return VariableOrigin::Builtin;
  }
  return platform::IsWindowsEnvironmentName(name) ? VariableOrigin::Machine
                                                  : VariableOrigin::CommandLine;
}

cvn::List<cvn::StringView> ScriptReader::Names(cvn::StringView text) const {
  return NamesIn(text, [this](cvn::StringView name) {
    return OriginOf(StoredName(name)) != VariableOrigin::CommandLine;
  });
}

void ScriptReader::CountCommands() {
  for (const FlowCommand& command : flow_.Commands()) {
    const cvn::StringView family = command.record != nullptr ? command.record->family->title
                                   : command.loop != tessel::LoopKind::None ? kLoops
                                                                            : cvn::StringView();
    ++reading_.commands[family][NameOf(*command.element)];
    reading_.unreached += command.isReached || isFaulty_ ? 0 : 1;
  }
}

}  // namespace

ScriptReading ReadScriptElement(const TiXmlElement& script, bool isFaulty) {
  return ScriptReader(script, isFaulty).Read();
}

}  // namespace tlx
