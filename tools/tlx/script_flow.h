// The flow of a script: its commands with the lists that they stand in, and which of them may run
// after which. Loops are taken as they are written.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "engine/command_registry.h"
#include "engine/loop_lowering.h"
#include "support/containers.h"

namespace tlx {

// No command. Where one should follow, the run ends.
inline constexpr std::size_t kNoCommand = SIZE_MAX;
// Stands, where a command should follow, for the targets of all onErrorGoTo that may have run.
inline constexpr std::size_t kAnyFallback = SIZE_MAX - 1;

// The script's own list of commands, a handler's, or the body of a loop.
struct FlowList {
  const TiXmlElement* element;  // whose children the commands are
  std::size_t owner;            // kNoCommand for the script's own
  std::size_t first = kNoCommand;
  bool isReplaced = false;  // a later handler of the same error stands in its place
};

struct FlowCommand {
  const TiXmlElement* element;
  const tessel::CommandRecord* record;  // null for a loop, and for a command that there isn't
  tessel::LoopKind loop;
  std::size_t list;                 // that it stands in
  std::size_t next = kNoCommand;    // the following one of that list
  std::size_t sequel = kNoCommand;  // what follows when no handler is entered
  std::size_t behind = 0;           // the first that isn't inside this one
  std::size_t firstList = 0;        // its handlers, or its body
  std::size_t listCount = 0;
  bool isReached = false;             // some run may come to it
  bool isFallback = false;            // and by some onErrorGoTo that names it
  std::size_t fallback = kNoCommand;  // where the last onErrorGoTo leads when it is reached
};

struct FlowEdge {
  enum class Kind { Sequence, List, Jump, Fallback };
  Kind kind;
  std::size_t to;
  const FlowList* list = nullptr;  // of a List: that is entered
};

// Two commands that have the same label; the first one keeps it.
struct DoubledLabel {
  std::size_t first;
  std::size_t later;
};

class ScriptFlow {
 public:
  // Takes one pass over the elements below `script`, and one over what runs may reach; neither
  // recurses. The elements must outlive this.
  explicit ScriptFlow(const TiXmlElement& script);

  // In document order. What the engine passes over, such as a handler of the wrong kind, is not
  // among them.
  const cvn::List<FlowCommand>& Commands() const { return commands_; }
  // The first is the script's own.
  const cvn::List<FlowList>& Lists() const { return lists_; }
  std::span<const FlowList> ListsOf(const FlowCommand& command) const {
    return std::span(lists_).subspan(command.firstList, command.listCount);
  }
  const FlowCommand* OwnerOf(const FlowCommand& command) const;

  const cvn::Map<std::string_view, std::size_t>& Labels() const { return labels_; }
  const cvn::List<DoubledLabel>& DoubledLabels() const { return doubledLabels_; }
  // The targets of the onErrorGoTo commands that some run may come to.
  const cvn::List<std::size_t>& Fallbacks() const { return fallbacks_; }

  // The command that a goto or onErrorGoTo names as its target; kNoCommand when there is none.
  std::size_t TargetOf(const FlowCommand& command) const;
  // Sets `*edges` to what may happen after a command.
  void FindEdges(const FlowCommand& command, cvn::List<FlowEdge>* edges) const;
  // Whether some run may come to the command and end behind it, without an 'exit'.
  bool MayEndBehind(const FlowCommand& command) const;

 private:
  void AddCommands();
  std::size_t AddCommand(const TiXmlElement& element, std::size_t list, std::size_t previous);
  void AddLists(FlowCommand* command, std::size_t owner);
  void AddHandlers(const FlowCommand& command, std::size_t owner);
  void AddLabel(std::size_t index);
  void FindSequels();
  void FindReached();
  void Reach(std::size_t index, std::size_t fallback);
  void AddFallback(std::size_t index);

  cvn::List<FlowCommand> commands_;
  cvn::List<FlowList> lists_;
  cvn::Map<std::string_view, std::size_t> labels_;
  cvn::List<DoubledLabel> doubledLabels_;
  cvn::List<std::size_t> fallbacks_;
  bool isAnyFallbackReached_ = false;
  cvn::List<std::size_t> toVisit_;
};

// Whether commands of some kind have a handler of this name.
bool IsHandlerName(std::string_view name);

// The value of an attribute; empty when there is none.
std::string_view AttributeOf(const TiXmlElement& element, const char* name);

inline bool IsGoTo(const FlowCommand& command) { return command.element->ValueStr() == "goto"; }
inline bool IsOnErrorGoTo(const FlowCommand& command) {
  return command.element->ValueStr() == "onErrorGoTo";
}

}  // namespace tlx
