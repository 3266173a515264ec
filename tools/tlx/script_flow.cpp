#include "tools/tlx/script_flow.h"

#include <algorithm>

#include "engine/script_command.h"
#include "support/utf.h"

namespace tlx {
namespace {

using tessel::FunctionKind;
using tessel::LoopKind;

// Whether the engine compiles a child element of this name for such a command. A command that there
// isn't may have been meant to be any.
bool IsHandlerOf(const FlowCommand& command, std::string_view name) {
  return command.record == nullptr ? IsHandlerName(name)
                                   : tessel::HasHandler(command.record->kind, name);
}

}  // namespace

bool IsHandlerName(std::string_view name) {
  return tessel::HasHandler(FunctionKind::ErrorResult, name) ||
         tessel::HasHandler(FunctionKind::BoolResult, name);
}

std::string_view AttributeOf(const TiXmlElement& element, const char* name) {
  const std::string* value = element.Attribute(std::string(name));
  return value == nullptr ? std::string_view() : std::string_view(*value);
}

ScriptFlow::ScriptFlow(const TiXmlElement& script) {
  lists_.push_back({&script, kNoCommand});
  AddCommands();
  FindSequels();
  FindReached();
}

const FlowCommand* ScriptFlow::OwnerOf(const FlowCommand& command) const {
  const std::size_t owner = lists_[command.list].owner;
  return owner == kNoCommand ? nullptr : &commands_[owner];
}

void ScriptFlow::AddCommands() {
  struct Place {
    const TiXmlElement* element;  // to add next
    std::size_t list;
    std::size_t previous;  // of the list
  };
  cvn::List<Place> places = {{lists_[0].element->FirstChildElement(), 0, kNoCommand}};
  while (!places.empty()) {
    Place& place = places.back();
    if (place.element == nullptr) {
      places.pop_back();
      continue;
    }
    const std::size_t index = AddCommand(*place.element, place.list, place.previous);
    place.previous = index;
    place.element = place.element->NextSiblingElement();
    const FlowCommand& command = commands_[index];
    for (std::size_t at = command.listCount; at-- > 0;) {
      const std::size_t list = command.firstList + at;
      places.push_back({lists_[list].element->FirstChildElement(), list, kNoCommand});
    }
  }
}

std::size_t ScriptFlow::AddCommand(const TiXmlElement& element, std::size_t list,
                                   std::size_t previous) {
  const std::size_t index = commands_.size();
  const LoopKind loop = tessel::LoopKindOf(element.ValueStr());
  const tessel::CommandRecord* record =
      loop == LoopKind::None ? tessel::FindCommand(cvn::Utf8ToWide(element.ValueStr())) : nullptr;
  FlowCommand command{&element, record, loop, list};
  command.behind = index + 1;
  AddLists(&command, index);
  commands_.push_back(command);
  if (previous == kNoCommand) {
    lists_[list].first = index;
  } else {
    commands_[previous].next = index;
  }
  AddLabel(index);
  return index;
}

void ScriptFlow::AddLists(FlowCommand* command, std::size_t owner) {
  command->firstList = lists_.size();
  if (command->loop != LoopKind::None) {
    lists_.push_back({command->element, owner});
  } else {
    AddHandlers(*command, owner);
  }
  command->listCount = lists_.size() - command->firstList;
}

void ScriptFlow::AddHandlers(const FlowCommand& command, std::size_t owner) {
  cvn::Map<std::string_view, std::size_t> byError;
  cvn::Map<std::string_view, std::size_t> byName;
  const TiXmlElement* child = command.element->FirstChildElement();
  for (; child != nullptr; child = child->NextSiblingElement()) {
    const std::string_view name = child->ValueStr();
    if (!IsHandlerOf(command, name)) {
      continue;
    }
    const std::size_t index = lists_.size();
    if (name != tessel::kOnErrorSpec) {
      if (byName.try_emplace(name, index).second) {
        lists_.push_back({child, owner});
      }
      continue;
    }
    lists_.push_back({child, owner});
    if (child->FirstChildElement() != nullptr) {
      const auto [earlier, isNew] = byError.try_emplace(AttributeOf(*child, "err"), index);
      if (!isNew) {
        lists_[earlier->second].isReplaced = true;
        earlier->second = index;
      }
    }
  }
}

void ScriptFlow::AddLabel(std::size_t index) {
  const std::string_view label = AttributeOf(*commands_[index].element, "id");
  if (label.empty() || commands_[index].loop != LoopKind::None) {
    return;
  }
  const auto [place, isNew] = labels_.try_emplace(label, index);
  if (!isNew) {
    doubledLabels_.push_back({place->second, index});
  }
}

void ScriptFlow::FindSequels() {
  for (FlowCommand& command : commands_) {
    const FlowCommand* owner = OwnerOf(command);
    if (command.next != kNoCommand || owner == nullptr) {
      command.sequel = command.next;
    } else if (owner->loop != LoopKind::None) {
      command.sequel = lists_[command.list].owner;
    } else {
      command.sequel = owner->sequel;
    }
  }
  for (std::size_t at = commands_.size(); at-- > 0;) {
    const std::size_t owner = lists_[commands_[at].list].owner;
    if (owner != kNoCommand) {
      commands_[owner].behind = std::max(commands_[owner].behind, commands_[at].behind);
    }
  }
}

void ScriptFlow::FindReached() {
  Reach(lists_.front().first, kNoCommand);
  cvn::List<FlowEdge> edges;
  while (!toVisit_.empty()) {
    const std::size_t index = toVisit_.back();
    const FlowCommand& command = commands_[index];
    toVisit_.pop_back();
    std::size_t fallback = command.fallback;
    if (IsOnErrorGoTo(command)) {
      fallback = TargetOf(command);
      AddFallback(fallback);
    }
    FindEdges(command, &edges);
    for (const FlowEdge& edge : edges) {
      Reach(edge.to, fallback);
    }
  }
}

void ScriptFlow::Reach(std::size_t index, std::size_t fallback) {
  if (index == kNoCommand) {
    return;
  }
  if (index == kAnyFallback) {
    if (!isAnyFallbackReached_) {
      isAnyFallbackReached_ = true;
      for (const std::size_t target : fallbacks_) {
        Reach(target, kAnyFallback);
      }
    }
    return;
  }
  FlowCommand& command = commands_[index];
  if (command.isReached && (command.fallback == fallback || command.fallback == kAnyFallback)) {
    return;
  }
  command.fallback = command.isReached ? kAnyFallback : fallback;
  command.isReached = true;
  toVisit_.push_back(index);
}

void ScriptFlow::AddFallback(std::size_t index) {
  if (index != kNoCommand && !commands_[index].isFallback) {
    commands_[index].isFallback = true;
    fallbacks_.push_back(index);
    if (isAnyFallbackReached_) {
      Reach(index, kAnyFallback);
    }
  }
}

std::size_t ScriptFlow::TargetOf(const FlowCommand& command) const {
  const auto label = labels_.find(AttributeOf(*command.element, "target"));
  return label == labels_.end() ? kNoCommand : label->second;
}

void ScriptFlow::FindEdges(const FlowCommand& command, cvn::List<FlowEdge>* edges) const {
  edges->clear();
  const FunctionKind kind = command.record == nullptr ? FunctionKind::Plain : command.record->kind;
  if (kind == FunctionKind::ExitResult) {
    return;
  }
  if (IsGoTo(command)) {
    edges->push_back({FlowEdge::Kind::Jump, TargetOf(command)});
    return;
  }
  std::size_t outcomesTaken = 0;
  bool takesFailures = false;
  for (const FlowList& list : ListsOf(command)) {
    if (list.first == kNoCommand || list.isReplaced) {
      continue;
    }
    const std::string_view name = list.element->ValueStr();
    outcomesTaken += name == tessel::kOnErrorSpec ? 0 : 1;
    takesFailures = takesFailures || name == tessel::kOnError;
    edges->push_back({FlowEdge::Kind::List, list.first, &list});
  }
  bool goesOn = outcomesTaken < 2;
  if (kind == FunctionKind::ErrorResult && !takesFailures && command.fallback != kNoCommand) {
    edges->push_back({FlowEdge::Kind::Fallback, command.fallback});
    goesOn = outcomesTaken == 0 || command.fallback == kAnyFallback;
  }
  const bool hasOutcomes = kind == FunctionKind::ErrorResult || kind == FunctionKind::BoolResult;
  if (goesOn || !hasOutcomes) {
    edges->push_back({FlowEdge::Kind::Sequence, command.sequel});
  }
}

bool ScriptFlow::MayEndBehind(const FlowCommand& command) const {
  if (!command.isReached || (command.sequel != kNoCommand && !IsGoTo(command))) {
    return false;
  }
  cvn::List<FlowEdge> edges;
  FindEdges(command, &edges);
  return std::ranges::find(edges, kNoCommand, &FlowEdge::to) != edges.end();
}

}  // namespace tlx
