#include "tools/tlx/handle_lint.h"

#include <algorithm>
#include <set>
#include <string>

#include "engine/command_registry.h"
#include "engine/script_command.h"
#include "support/format.h"
#include "support/utf.h"
#include "tools/tlx/attribute_lint.h"

namespace tlx {
namespace {

using tessel::AttributeDescription;
using tessel::AttributeForm;
using tessel::HandleKinds;

constexpr HandleKinds kNothing = 0x80;  // beside the kinds: the name may stand for nothing
constexpr HandleKinds kXml = tessel::kXmlDocumentKind | tessel::kXmlElementKind;
constexpr std::size_t kMostSteps = 20'000'000;  // commands times handles that are looked at

// What a command does with one handle.
struct HandleUse {
  std::size_t command;
  const AttributeDescription* attribute;
};

std::span<const AttributeDescription> AttributesOf(const FlowCommand& command) {
  using tessel::LoopKind;
  // A loop goes by its commands, which take and give as this one does.
  const tessel::CommandRecord* record =
      command.loop == LoopKind::XmlForEach    ? tessel::FindCommand(u"xmlGetElement")
      : command.loop == LoopKind::JsonForEach ? tessel::FindCommand(u"jsonGetElement")
                                              : command.record;
  return record == nullptr ? std::span<const AttributeDescription>()
                           : record->description->attributes;
}

const char16_t* Describe(HandleKinds needed, HandleKinds held) {
  if (held == kNothing) {
    return u"nothing is open under it here";
  }
  if ((held & kXml) == 0) {
    return u"it is one of JSON here";
  }
  return (needed & kXml) != 0 ? u"it holds an element here, and no document"
                              : u"it is one of XML here";
}

class HandleLint {
 public:
  HandleLint(const ScriptFlow& flow, Findings* findings) : flow_(flow), findings_(findings) {
    const auto& commands = flow_.Commands();
    cvn::List<FlowEdge> edges;
    for (std::size_t at = 0; at < commands.size(); ++at) {
      for (const AttributeDescription& attribute : AttributesOf(commands[at])) {
        if (attribute.form == AttributeForm::Handle) {
          const std::string name = cvn::WideToUtf8(attribute.name);
          uses_[AttributeOf(*commands[at].element, name.c_str())].push_back({at, &attribute});
        }
      }
      cvn::List<std::size_t>& next = next_.emplace_back();
      flow_.FindEdges(commands[at], &edges);
      for (const FlowEdge& edge : edges) {
        if (edge.to == kAnyFallback) {
          next.insert(next.end(), flow_.Fallbacks().begin(), flow_.Fallbacks().end());
        } else if (edge.to != kNoCommand) {
          next.push_back(edge.to);
        }
      }
    }
  }

  void Check() {
    std::size_t steps = 0;
    for (const auto& [name, uses] : uses_) {
      steps += flow_.Commands().size();
      if (steps > kMostSteps) {
        return;
      }
      if (!name.empty()) {
        Follow(uses);
        Tell(name, uses);
      }
    }
  }

 private:
  // A command that expects to fail may.
  bool TakesFailure(const FlowCommand& command) const {
    return std::ranges::any_of(flow_.ListsOf(command), [](const FlowList& list) {
      return list.element->ValueStr() == tessel::kOnError ||
             list.element->ValueStr() == tessel::kOnErrorSpec;
    });
  }

  // Sets `before_` to what a handle may hold when a run comes to a command; 0 where none comes.
  void Follow(const cvn::List<HandleUse>& uses) {
    before_.assign(flow_.Commands().size(), 0);
    cvn::List<std::size_t> toVisit;
    const std::size_t first = flow_.Lists().front().first;
    const auto reach = [&](std::size_t index, HandleKinds kinds) {
      if ((before_[index] | kinds) != before_[index]) {
        before_[index] |= kinds;
        toVisit.push_back(index);
      }
    };
    if (first != kNoCommand) {
      reach(first, kNothing);
    }
    while (!toVisit.empty()) {
      const std::size_t index = toVisit.back();
      toVisit.pop_back();
      const HandleKinds after = After(index, uses);
      for (const std::size_t next : next_[index]) {
        reach(next, after);
      }
    }
  }

  HandleKinds After(std::size_t index, const cvn::List<HandleUse>& uses) const {
    HandleKinds kinds = before_[index];
    auto use = std::ranges::lower_bound(uses, index, {}, &HandleUse::command);
    for (; use != uses.end() && use->command == index; ++use) {
      if (use->attribute->givenKinds != 0) {
        kinds |= use->attribute->givenKinds;  // what was there stays when the command fails
      } else if (use->attribute->neededKinds == 0) {
        kinds = kNothing;  // closed
      }
    }
    return kinds;
  }

  void Tell(std::string_view name, const cvn::List<HandleUse>& uses) {
    for (const HandleUse& use : uses) {
      const HandleKinds needed = use.attribute->neededKinds;
      const HandleKinds held = before_[use.command];
      const FlowCommand& command = flow_.Commands()[use.command];
      if (needed == 0 || held == 0 || (held & needed) != 0 || TakesFailure(command)) {
        continue;
      }
      const TiXmlElement& element = *command.element;
      const char16_t* what = Describe(needed, held);
      findings_->Warn(PlaceOf(element, cvn::WideToUtf8(use.attribute->name).c_str()),
                      cvn::Format(u"'%s' fails with the handle '%s': %s", NameOf(element),
                                  cvn::Utf8ToWide(name), what));
    }
  }

  const ScriptFlow& flow_;
  Findings* findings_;
  cvn::Map<std::string_view, cvn::List<HandleUse>> uses_;
  cvn::List<cvn::List<std::size_t>> next_;
  cvn::List<HandleKinds> before_;
};

}  // namespace

void LintHandles(const ScriptFlow& flow, Findings* findings) { HandleLint(flow, findings).Check(); }

}  // namespace tlx
