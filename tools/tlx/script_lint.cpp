#include "tools/tlx/script_lint.h"

#include <algorithm>
#include <set>
#include <string>

#include "engine/loop_lowering.h"
#include "engine/script_command.h"
#include "engine/xml_text.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/attribute_lint.h"
#include "tools/tlx/flow_cycles.h"
#include "tools/tlx/handle_lint.h"
#include "tools/tlx/header_lint.h"
#include "tools/tlx/script_flow.h"
#include "tools/tlx/spelling.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;
using tessel::XmlAttributeText;

cvn::String NameOf(const TiXmlElement& element) { return cvn::Utf8ToWide(element.ValueStr()); }

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

struct NoCaseLess {
  bool operator()(cvn::StringView left, cvn::StringView right) const {
    return cvn::CompareNoCase(left, right) < 0;
  }
};
using TextsNoCase = std::set<cvn::String, NoCaseLess>;

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
    CheckLabels();
    CheckLoopsInLoops();
    // A jump to nowhere would make all behind it look unreachable.
    if (isFlowKnown_) {
      CheckFlow();
    }
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
  void CheckLabels();
  void CheckTarget(const FlowCommand& command, const TextsNoCase& labels,
                   const TextsNoCase& lostLabels);
  void CheckLoopsInLoops();
  void CheckFlow();
  void CheckEnd();

  const TiXmlElement& script_;
  ScriptFlow flow_;
  Findings* findings_;
  bool isFlowKnown_ = true;
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
  isFlowKnown_ = false;
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

void ScriptLint::CheckLabels() {
  for (const DoubledLabel& doubled : flow_.DoubledLabels()) {
    const TiXmlElement& later = *flow_.Commands()[doubled.later].element;
    findings_->Error(
        PlaceOf(later, "id"),
        cvn::Format(u"the label '%s' is taken, in line %d", XmlAttributeText(later, "id"),
                    flow_.Commands()[doubled.first].element->Row()));
  }
  TextsNoCase labels;
  TextsNoCase lostLabels;
  for (const auto& [label, index] : flow_.Labels()) {
    labels.insert(cvn::Utf8ToWide(label));
  }
  for (const FlowCommand& command : flow_.Commands()) {
    if (command.loop != LoopKind::None) {
      lostLabels.insert(XmlAttributeText(*command.element, "id"));
    }
  }
  for (const FlowCommand& command : flow_.Commands()) {
    if (IsGoTo(command) || IsOnErrorGoTo(command)) {
      CheckTarget(command, labels, lostLabels);
    }
  }
}

void ScriptLint::CheckTarget(const FlowCommand& command, const TextsNoCase& labels,
                             const TextsNoCase& lostLabels) {
  const TiXmlBase& where = PlaceOf(*command.element, "target");
  const cvn::String target = XmlAttributeText(*command.element, "target");
  if (target.Empty()) {
    if (IsGoTo(command)) {
      findings_->Warn(where, u"a 'goto' without a target ends the run with -1");
    }
    return;
  }
  if (flow_.TargetOf(command) != kNoCommand) {
    return;
  }
  isFlowKnown_ = false;
  cvn::String hint;
  const auto meant = labels.find(target);
  if (meant != labels.end()) {
    hint = cvn::Format(u"; did you mean '%s'?", *meant);
  } else if (lostLabels.contains(target)) {
    hint = u"; a loop keeps none";
  } else if (!FindReference(target).empty()) {
    hint = u"; it is used as written";
  }
  findings_->Error(where, cvn::Format(u"there is no label '%s'%s", target, hint));
}

void ScriptLint::CheckLoopsInLoops() {
  const auto& commands = flow_.Commands();
  cvn::List<bool> isInJsonForEach;
  for (const FlowCommand& command : commands) {
    const std::size_t owner = flow_.Lists()[command.list].owner;
    isInJsonForEach.push_back(
        owner != kNoCommand &&
        (isInJsonForEach[owner] || commands[owner].loop == LoopKind::JsonForEach));
  }
  const cvn::List<bool> isBegunAgain = FindLoopsBegunAgain(flow_);
  for (std::size_t at = 0; at < commands.size(); ++at) {
    const LoopKind loop = commands[at].loop;
    const TiXmlElement& element = *commands[at].element;
    if (loop == LoopKind::JsonForEach && isInJsonForEach[at]) {
      findings_->Warn(element,
                      u"a 'jsonForEach' in another takes its place in the array away: the "
                      u"outer one doesn't go on where it was");
    } else if (isBegunAgain[at] && loop != LoopKind::For) {
      findings_->Warn(element,
                      cvn::Format(u"a run may come to this '%s' again when it has ended: its fetch "
                                  u"stays failed, so that it doesn't go beyond one element",
                                  NameOf(element)));
    }
  }
}

void ScriptLint::CheckFlow() {
  const auto& commands = flow_.Commands();
  cvn::List<bool> isFollower(commands.size());  // of a command that isn't reached either
  for (const FlowCommand& command : commands) {
    if (!command.isReached && command.next != kNoCommand) {
      isFollower[command.next] = true;
    }
  }
  for (std::size_t at = 0; at < commands.size(); ++at) {
    const FlowCommand& command = commands[at];
    const FlowCommand* owner = flow_.OwnerOf(command);
    // What is told of a command goes for what follows it and for its handlers.
    const bool isTold = isFollower[at] || (owner != nullptr && !owner->isReached) ||
                        flow_.Lists()[command.list].isReplaced;
    if (!command.isReached && !isTold) {
      findings_->Warn(*command.element,
                      cvn::Format(u"no run comes to this '%s'", NameOf(*command.element)));
    }
  }
  LintHandles(flow_, findings_);
  CheckEnd();
}

void ScriptLint::CheckEnd() {
  if (flow_.Commands().empty()) {
    findings_->Warn(script_, u"there is no command: the run ends with -1");
  }
  cvn::List<FlowEdge> edges;
  for (const FlowCommand& command : flow_.Commands()) {
    if (command.sequel != kNoCommand || !command.isReached) {
      continue;
    }
    flow_.FindEdges(command, &edges);
    if (std::ranges::any_of(
            edges, [](const FlowEdge& edge) { return edge.kind == FlowEdge::Kind::Sequence; })) {
      findings_->Warn(*command.element,
                      u"the script may end behind this command without an 'exit', with -1");
      return;
    }
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
