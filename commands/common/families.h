// The families of commands, each declared in a file of its own.
#pragma once

#include "engine/command_registry.h"

namespace tessel {

extern const CommandFamily kFlowFamily;
extern const CommandFamily kTextFamily;
extern const CommandFamily kFilesFamily;
extern const CommandFamily kFoldersFamily;
extern const CommandFamily kRegistryFamily;
extern const CommandFamily kServicesFamily;
extern const CommandFamily kProgramsFamily;
extern const CommandFamily kProductFamily;
extern const CommandFamily kIniFamily;
extern const CommandFamily kXmlFamily;
extern const CommandFamily kJsonFamily;

}  // namespace tessel
