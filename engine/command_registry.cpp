#include "engine/command_registry.h"

namespace tessel {
namespace {

using CommandRegistry = cvn::Map<cvn::String, CommandRecord>;

// Made on first use, because static initialisers in other files register commands.
CommandRegistry& Registry() {
  static CommandRegistry registry;
  return registry;
}

}  // namespace

const CommandRecord* FindCommand(cvn::StringView name) {
  const auto found = Registry().find(name);
  return found == Registry().end() ? nullptr : &found->second;
}

const cvn::Map<cvn::String, CommandRecord>& AllCommands() { return Registry(); }

bool RegisterFunction(cvn::StringView name, const CommandRecord& record) {
  return Registry().try_emplace(cvn::String(name), record).second;
}

}  // namespace tessel
