#include "tools/tlx/script_lint.h"

#include <algorithm>
#include <string>

#include "engine/loop_lowering.h"
#include "engine/script_command.h"
#include "engine/xml_text.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/attribute_lint.h"
#include "tools/tlx/flow_lint.h"
#include "tools/tlx/header_lint.h"
#include "tools/tlx/references.h"
#include "tools/tlx/script_flow.h"
#include "tools/tlx/spelling.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;
using tessel::XmlAttributeText;

// What a script's element may be called.
const cvn::List<cvn::StringView>& CommandNames() {
  static const cvn::List<cvn::StringView> names = [] {
    cvn::List<cvn::StringView> all;
    for (const tessel::LoopRecord& loop : tessel::AllLoops()) {
      all.push_back(loop.name);
    }
    for (const auto& [name, record] : tessel::AllCommands()) {
      all.push_back(name);
    }
    return all;
  }();
  return names;
}

class ScriptLint {
 public:
  ScriptLint(const TiXmlElement& script, Findings* findings)
      : script_(script), flow_(script), findings_(findings) {}

  void Check() {
    CheckScriptElement();
    for (const FlowCommand& command : flow_.Commands()) {
      CheckCommand(command);
      CheckChildren(command);
    }
    for (const FlowList& list : flow_.Lists()) {
      CheckList(list);
    }
    LintFlow(script_, flow_, hasUnknown_, findings_);
  }

 private:
  void CheckScriptElement();
  void CheckCommand(const FlowCommand& command);
  void RefuseUnknown(const FlowCommand& command);
  void Judge(const FlowCommand& command);
  void JudgeLoop(const FlowCommand& loop);
  void CheckChildren(const FlowCommand& command);
  void CheckData(const FlowCommand& command, const TiXmlElement& data);
  void WarnOfIgnored(const FlowCommand& command, const TiXmlElement& child);
  void WarnOfText(const TiXmlElement& element);
  void CheckList(const FlowList& list);

  const TiXmlElement& script_;
  ScriptFlow flow_;
  Findings* findings_;
  bool hasUnknown_ = false;  // commands
};

void ScriptLint::CheckScriptElement() {
  constexpr cvn::StringView kAttributes[] = {u"log"};
  WarnOfText(script_);
  for (const TiXmlAttribute* at = script_.FirstAttribute(); at != nullptr; at = at->Next()) {
    const cvn::String name = cvn::Utf8ToWide(at->NameTStr());
    if (name != u"log" && !name.AsView().starts_with(u"xml")) {
      findings_->Warn(*at, cvn::Format(u"'script' has no attribute '%s'%s", name,
                                       DidYouMean(name, kAttributes)));
    }
  }
  const TiXmlElement* other = script_.NextSiblingElement("script");
  for (; other != nullptr; other = other->NextSiblingElement("script")) {
    findings_->Warn(*other, u"only the first 'script' runs");
  }
}

void ScriptLint::CheckCommand(const FlowCommand& command) {
  const TiXmlElement& element = *command.element;
  if (command.loop == LoopKind::None && command.record == nullptr) {
    RefuseUnknown(command);
  } else {
    Judge(command);
  }
  const cvn::String label = XmlAttributeText(element, "id");
  if (!label.Empty() && command.loop != LoopKind::None) {
    findings_->Warn(PlaceOf(element, "id"),
                    cvn::Format(u"the label '%s' is lost: a loop keeps none", label));
  } else if (!FindReference(label).empty()) {
    findings_->Warn(
        PlaceOf(element, "id"),
        cvn::Format(u"'%s' is not replaced: a label is used as written", FindReference(label)));
  }
}

void ScriptLint::RefuseUnknown(const FlowCommand& command) {
  const cvn::String name = NameOf(*command.element);
  const FlowCommand* owner = flow_.OwnerOf(command);
  cvn::String hint;
  if (IsHandlerName(command.element->ValueStr()) && owner != nullptr &&
      owner->loop != LoopKind::None) {
    hint = cvn::Format(u"; a loop such as '%s' has no handlers", NameOf(*owner->element));
  } else {
    hint = DidYouMean(name, CommandNames());
  }
  findings_->Error(*command.element, cvn::Format(u"there is no command '%s'%s", name, hint));
  hasUnknown_ = true;
}

void ScriptLint::Judge(const FlowCommand& command) {
  const TiXmlElement& element = *command.element;
  if (command.record != nullptr) {
    const auto made = tessel::MakeCommand(NameOf(element), *command.record, element);
    JudgeAttributes(element, *command.record->description, made->attributes, made.get(), findings_);
  } else {
    tessel::AttributeMap attributes;
    tessel::CopyAttributes(element, &attributes);
    JudgeAttributes(element, *tessel::DescriptionOf(command.loop), attributes, nullptr, findings_);
    JudgeLoop(command);
  }
}

// What a loop hands over to the commands that stand for it.
void ScriptLint::JudgeLoop(const FlowCommand& loop) {
  constexpr struct {
    LoopKind loop;
    const char* name;
    cvn::StringView command;
    cvn::StringView attribute;
  } kParts[] = {{LoopKind::XmlForEach, "xpath", u"xmlGetElement", u"xpath"},
                {LoopKind::XmlForEach, "step", u"xmlGetElement", u"xpath"},
                {LoopKind::JsonForEach, "path", u"jsonGetElement", u"path"}};
  for (const auto& part : kParts) {
    const tessel::CommandRecord* record =
        part.loop == loop.loop ? tessel::FindCommand(part.command) : nullptr;
    if (record == nullptr) {
      continue;
    }
    const auto attributes = record->description->attributes;
    const auto found =
        std::ranges::find(attributes, part.attribute, &tessel::AttributeDescription::name);
    JudgeLiteral(PlaceOf(*loop.element, part.name), cvn::Utf8ToWide(part.name),
                 XmlAttributeText(*loop.element, part.name), found->judge, findings_);
  }
  const cvn::String value = XmlAttributeText(*loop.element, "value");
  const cvn::String separators = XmlAttributeText(*loop.element, "delim");
  if (loop.loop == LoopKind::For && !value.Empty() && value[0] != u'%' &&
      separators.AsView().find(value[0]) != cvn::StringView::npos) {
    findings_->Warn(
        PlaceOf(*loop.element, "value"),
        u"the text begins with a separator, which ends the loop before its first round");
  }
}

void ScriptLint::CheckChildren(const FlowCommand& command) {
  if (command.loop != LoopKind::None || command.record == nullptr) {
    return;
  }
  WarnOfText(*command.element);
  auto lists = flow_.ListsOf(command);
  const TiXmlElement* child = command.element->FirstChildElement();
  for (; child != nullptr; child = child->NextSiblingElement()) {
    if (!lists.empty() && lists.front().element == child) {
      lists = lists.subspan(1);
    } else if (child->ValueStr() == "data") {
      CheckData(command, *child);
    } else {
      WarnOfIgnored(command, *child);
    }
  }
}

void ScriptLint::CheckData(const FlowCommand& command, const TiXmlElement& data) {
  const TiXmlElement& element = *command.element;
  const auto attributes = command.record->description->attributes;
  const TiXmlNode* first = data.FirstChild();
  if (std::ranges::find(attributes, u"data", &tessel::AttributeDescription::name) ==
      attributes.end()) {
    findings_->Warn(data, cvn::Format(u"'%s' has no 'data'", NameOf(element)));
  } else if (FindAttribute(element, "data") != nullptr) {
    findings_->Warn(data, u"the attribute 'data' counts, and not this element");
  } else if (element.FirstChildElement("data") != &data) {
    findings_->Warn(data, u"only the first 'data' of a command counts");
  } else if (first != nullptr && first->ToText() == nullptr) {
    findings_->Warn(data, u"'data' counts as empty, since it doesn't begin with a text");
  }
}

void ScriptLint::WarnOfIgnored(const FlowCommand& command, const TiXmlElement& child) {
  const cvn::String owner = NameOf(*command.element);
  const cvn::String name = NameOf(child);
  const FunctionKind kind = command.record->kind;
  cvn::List<cvn::String> handlers;
  for (const char* handler : tessel::HandlerNames(kind)) {
    handlers.push_back(cvn::Utf8ToWide(handler));
  }
  const cvn::List<cvn::StringView> known(handlers.begin(), handlers.end());
  if (tessel::HasHandler(kind, child.ValueStr())) {
    findings_->Warn(child, cvn::Format(u"only the first '%s' of a command counts", name));
  } else if (IsHandlerName(child.ValueStr())) {
    findings_->Warn(child, known.empty()
                               ? cvn::Format(u"'%s' is ignored: '%s' has no handlers", name, owner)
                               : cvn::Format(u"'%s' is ignored: '%s' has the handlers %s", name,
                                             owner, QuotedList(known)));
  } else {
    findings_->Warn(
        child, cvn::Format(u"'%s' in '%s' is ignored%s", name, owner, DidYouMean(name, known)));
  }
}

void ScriptLint::WarnOfText(const TiXmlElement& element) {
  for (const TiXmlNode* at = element.FirstChild(); at != nullptr; at = at->NextSibling()) {
    const bool isText = at->ToText() != nullptr;
    if (isText && at->ValueStr().find_first_not_of(" \t\r\n") != std::string::npos) {
      findings_->Warn(*at, cvn::Format(u"a text in '%s' is ignored", NameOf(element)));
      return;
    }
  }
}

void ScriptLint::CheckList(const FlowList& list) {
  const TiXmlElement& element = *list.element;
  if (list.owner == kNoCommand) {
    return;
  }
  WarnOfText(element);
  if (flow_.Commands()[list.owner].loop != LoopKind::None) {
    return;
  }
  const bool isSpec = element.ValueStr() == tessel::kOnErrorSpec;
  const cvn::String name = NameOf(element);
  const cvn::String error = XmlAttributeText(element, "err");
  for (const TiXmlAttribute* at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
    if (!isSpec || at->NameTStr() != "err") {
      findings_->Warn(
          *at, cvn::Format(u"'%s' has no attribute '%s'", name, cvn::Utf8ToWide(at->NameTStr())));
    }
  }
  if (isSpec && error.Empty()) {
    findings_->Error(PlaceOf(element, "err"),
                     u"'onerrorspec': attribute 'err' is missing or empty");
  } else if (!FindReference(error).empty()) {
    findings_->Warn(PlaceOf(element, "err"),
                    cvn::Format(u"'%s' is not replaced: attribute 'err' is used as written",
                                FindReference(error)));
  }
  if (list.isReplaced) {
    findings_->Warn(element, cvn::Format(u"a later handler of '%s' takes this one's place", error));
  }
  if (list.first == kNoCommand && (isSpec || name == u"onerror")) {
    findings_->Warn(element, cvn::Format(u"an empty '%s' takes no error", name));
  }
}

}  // namespace

cvn::List<Finding> LintScript(const TiXmlDocument& document) {
  Findings findings;
  const TiXmlElement& root = *document.RootElement();
  LintHeader(root, &findings);
  ScriptLint(*root.FirstChildElement("script"), &findings).Check();
  return findings.Take();
}

}  // namespace tlx
