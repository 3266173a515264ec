#include "tools/tlx/flow_lint.h"

#include <algorithm>
#include <set>

#include "engine/xml_text.h"
#include "support/format.h"
#include "support/numbers.h"
#include "support/utf.h"
#include "tools/tlx/attribute_lint.h"
#include "tools/tlx/flow_cycles.h"
#include "tools/tlx/handle_lint.h"
#include "tools/tlx/references.h"

namespace tlx {
namespace {

using tessel::LoopKind;
using tessel::XmlAttributeText;

struct NoCaseLess {
  bool operator()(cvn::StringView left, cvn::StringView right) const {
    return cvn::CompareNoCase(left, right) < 0;
  }
};
using TextsNoCase = std::set<cvn::String, NoCaseLess>;

class FlowLint {
 public:
  FlowLint(const TiXmlElement& script, const ScriptFlow& flow, Findings* findings)
      : script_(script), flow_(flow), findings_(findings) {}

  void Check(bool hasUnknown) {
    CheckLabels();
    CheckLoopsInLoops();
    // A jump to nowhere would make all behind it look unreachable.
    if (!hasUnknown && !hasLostJumps_) {
      CheckReach();
      LintHandles(flow_, findings_);
      CheckEnd();
    }
  }

 private:
  void CheckLabels();
  void CheckTarget(const FlowCommand& command, const TextsNoCase& labels,
                   const TextsNoCase& lostLabels);
  void CheckLoopsInLoops();
  void CheckReach();
  void CheckEnd();

  const TiXmlElement& script_;
  const ScriptFlow& flow_;
  Findings* findings_;
  bool hasLostJumps_ = false;
};

void FlowLint::CheckLabels() {
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

void FlowLint::CheckTarget(const FlowCommand& command, const TextsNoCase& labels,
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
  hasLostJumps_ = true;
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

void FlowLint::CheckLoopsInLoops() {
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

void FlowLint::CheckReach() {
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
}

void FlowLint::CheckEnd() {
  if (flow_.Commands().empty()) {
    findings_->Warn(script_, u"there is no command: the run ends with -1");
  }
  // A 'goto' to nowhere is told where its target is.
  const auto last = std::ranges::find_if(flow_.Commands(), [this](const FlowCommand& command) {
    return !IsGoTo(command) && flow_.MayEndBehind(command);
  });
  if (last != flow_.Commands().end()) {
    findings_->Warn(*last->element,
                    u"the script may end behind this command without an 'exit', with -1");
  }
}

}  // namespace

void LintFlow(const TiXmlElement& script, const ScriptFlow& flow, bool hasUnknown,
              Findings* findings) {
  FlowLint(script, flow, findings).Check(hasUnknown);
}

}  // namespace tlx
