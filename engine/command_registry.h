// The commands that the language has, by family and by name.
#pragma once

#include <memory>
#include <span>

#include "engine/command_description.h"
#include "engine/function_base.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

using FunctionFactory = std::unique_ptr<FunctionBase> (*)();

struct CommandFamily;

// A command; command_declaration.h makes these.
struct CommandRecord {
  cvn::StringView name;
  FunctionFactory factory;
  FunctionKind kind;
  const CommandDescription* description;  // never null
  const CommandFamily* family = nullptr;  // from its registration on
};

// Commands that belong together, and what the language's reference says of all of them.
struct CommandFamily {
  cvn::StringView title;
  cvn::StringView introduction;             // Markdown; ends with a line feed
  std::span<const CommandRecord> commands;  // in the order of the reference
  // The file that the reference's examples open, if they share one, by its name in their folder
  // "files".
  cvn::StringView sample = {};
  // Its commands change the registry, or nothing that outlasts the run. Before any other command
  // what the registry was told before is brought to the disk.
  bool keepsToRegistry = false;
};

// Finds a command by its exact name; null when there is none. The registry is filled by static
// initialisation and constant while scripts run.
const CommandRecord* FindCommand(cvn::StringView name);

// All commands, by name.
const cvn::Map<cvn::StringView, CommandRecord>& AllCommands();

// All families, in the order of their registration, which is that of the reference.
std::span<const CommandFamily* const> AllFamilies();

// Adds a family, which lives as long as the process. False when a name in it is taken: that command
// stays the one that it was.
bool RegisterFamily(const CommandFamily& family);

}  // namespace tessel
