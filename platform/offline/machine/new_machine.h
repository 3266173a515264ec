// A new machine: the folder of a Windows system volume, with its folders and hives.
#pragma once

#include <string>

#include "platform/error.h"
#include "platform/machine.h"
#include "platform/offline/volume/volume.h"

namespace platform::posix {

// As machine::Create, in a folder as the host names it. It is built under another name beside it,
// so that half of a machine is never to be found; where a volume is mounted, in the folder itself,
// the registry last.
Code MakeMachine(const std::string& folder, const machine::Description& description);

// The machine that the environment names; without TESSEL_MACHINE, one that is missing is made.
Machine DefaultMachine(const machine::Description& description);

}  // namespace platform::posix
