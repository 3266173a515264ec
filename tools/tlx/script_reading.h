// What there is to learn of a script by reading it: what it may touch, the variables that it works
// with, how it may end. Nothing of it runs.
#pragma once

#include <tinyxml.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>

#include "engine/command_description.h"
#include "support/containers.h"
#include "support/string.h"

namespace tlx {

using NameSet = std::set<cvn::String, std::less<>>;
using ScriptLines = cvn::List<std::size_t>;  // counted from 1, in their order, each once

// Something outside of the script that a run may touch. What commands do alike to one name is one.
struct Touch {
  tessel::Subject subject;
  tessel::Use use;
  cvn::String name = {};            // as the script has it, references and all
  cvn::StringView deferredBy = {};  // the flag that may let it wait for the next boot
  ScriptLines lines = {};           // of the commands
  NameSet decidedByVariables = {};  // the names in its references
  NameSet decidedByMachine = {};    // likewise, of variables that every Windows sets
};

enum class VariableOrigin {
  Script,       // some command sets it
  Builtin,      // the run sets it
  Machine,      // nobody does, and every Windows has a variable of that name in its environment
  CommandLine,  // nobody does: the command line has to, or the environment may
};

struct VariableReading {
  VariableOrigin origin = VariableOrigin::CommandLine;
  // Whether the script asks if the command line set it: by a 'test' of "%name%" and "%%name%%".
  bool isAskedFor = false;
  ScriptLines readIn;
  ScriptLines setIn;
  std::size_t setters = 0;  // commands that set it
  // What the only command that sets it puts in, as the script has it, when that is an 'assign'.
  std::optional<cvn::String> text;
};

struct ScriptReading {
  cvn::List<Touch> touches;  // in the order of their first lines
  // Those that are read or set, by name; an array's elements share the name of the array and "[]".
  cvn::Map<cvn::String, VariableReading> variables;
  cvn::Map<std::int32_t, ScriptLines> exits;  // by the code of the command
  bool mayRunOffTheEnd = false;
  // How many commands of each name a family has, by the family's title; loops are one, and what
  // isn't known is another, with an empty title.
  cvn::Map<cvn::StringView, cvn::Map<cvn::String, std::size_t>> commands;
  // Commands that no run comes to; they don't count for all of the above but `commands`.
  std::size_t unreached = 0;
};

// Reads the element `script` of a document. `isFaulty` tells that the runner refuses the script:
// then any of its commands counts as reached.
ScriptReading ReadScriptElement(const TiXmlElement& script, bool isFaulty);

}  // namespace tlx
