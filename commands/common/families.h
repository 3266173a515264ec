// The families of commands, each declared in a file of its own.
#pragma once

#include "engine/command_registry.h"

namespace tessel {

extern const CommandFamily kFlowFamily;
extern const CommandFamily kTextFamily;

}  // namespace tessel
