// The environment as programs of the host get it.
//
// A program that is started gets the host's environment as this process found it, and over it what
// environment::Set set, in place of every variable whose name is the same to Windows, under the
// name as Set spelled it. Two names are apart: PATH stays the host's, since what a run sets for
// Windows' search is no use to a program of the host; and TESSEL_MACHINE names the machine of this
// process, absolute, so that a run inside the run services the same one. The variables that Windows
// has and the host hasn't (SystemRoot, TEMP) have values of the machine, and are not passed on.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace platform::posix {

// Ends with a null; valid until the next call of environment::Set.
char* const* ChildEnvironment();

// The folders of PATH, as environment::Get has it, in order: split at ';' once it was set, and at
// ':' while it is the host's.
cvn::List<cvn::String> SearchedFolders();

}  // namespace platform::posix
