#include "engine/command_registry.h"

namespace tessel {
namespace {

struct CommandRegistry {
  cvn::Map<cvn::StringView, CommandRecord> commands;
  cvn::List<const CommandFamily*> families;
};

// Made on first use, because static initialisers in other files register families.
CommandRegistry& Registry() {
  static CommandRegistry registry;
  return registry;
}

}  // namespace

const CommandRecord* FindCommand(cvn::StringView name) {
  const auto& commands = AllCommands();
  const auto found = commands.find(name);
  return found == commands.end() ? nullptr : &found->second;
}

const cvn::Map<cvn::StringView, CommandRecord>& AllCommands() { return Registry().commands; }

std::span<const CommandFamily* const> AllFamilies() { return Registry().families; }

bool RegisterFamily(const CommandFamily& family) {
  Registry().families.push_back(&family);
  bool areAllNew = true;
  for (const CommandRecord& command : family.commands) {
    CommandRecord record = command;
    record.family = &family;
    areAllNew = Registry().commands.try_emplace(command.name, record).second && areAllNew;
  }
  return areAllNew;
}

}  // namespace tessel
