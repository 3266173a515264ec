#include "engine/command_registry.h"

#include "support/containers.h"

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

bool RegisterFunction(cvn::StringView name, FunctionFactory factory, FunctionKind kind) {
  return Registry().try_emplace(cvn::String(name), CommandRecord{factory, kind}).second;
}

}  // namespace tessel
