// What the pictures of a script's flow write into their nodes and beside their edges.
#pragma once

#include <string>
#include <string_view>

#include "tools/tlx/script_flow.h"

namespace tlx {

// What tells most about a command beside its name: one of its attributes, the code that an exit
// ends the run with, what a test compares. May be empty. UTF-8, of any length.
std::string TellingOf(const FlowCommand& command);

// The label of a command; empty when it has none.
inline std::string_view LabelOf(const FlowCommand& command) {
  return AttributeOf(*command.element, "id");
}

// The name of a list that isn't a loop's body, with the error that it handles: "onTrue",
// "onerrorspec 2".
std::string NameOf(const FlowList& list);

// Cut between characters to at most `bytes`, with "..." behind what is left.
std::string Shortened(std::string_view utf8, std::size_t bytes);

}  // namespace tlx
