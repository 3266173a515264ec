// The subcommands, one file each.
#pragma once

#include <span>

#include "tools/tlx/options.h"

namespace tlx {

// All of them, in the order of the list that help shows.
std::span<const CommandSpec* const> AllCommands();

extern const CommandSpec kApplyCommand;
extern const CommandSpec kCatalogCommand;
extern const CommandSpec kChangesCommand;
extern const CommandSpec kCompletionCommand;
extern const CommandSpec kEventsCommand;
extern const CommandSpec kGraphCommand;
extern const CommandSpec kInspectCommand;
extern const CommandSpec kKeygenCommand;
extern const CommandSpec kLintCommand;
extern const CommandSpec kMachineCheckCommand;
extern const CommandSpec kMachineCreateCommand;
extern const CommandSpec kMachineShowCommand;
extern const CommandSpec kManCommand;
extern const CommandSpec kPackCommand;
extern const CommandSpec kReferenceCommand;
extern const CommandSpec kRehearseCommand;
extern const CommandSpec kSchemaCommand;
extern const CommandSpec kUndoCommand;
extern const CommandSpec kUnpackCommand;
extern const CommandSpec kVerifyCommand;

}  // namespace tlx
