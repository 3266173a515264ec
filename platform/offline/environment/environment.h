// The variables of the environment, as platform/environment.h gives them, as programs of the host
// get them; and the user whose folders they name.
//
// A program that is started gets the host's environment as this process found it, and over it what
// environment::Set set, in place of every variable whose name is the same to Windows, under the
// name as Set spelled it. Three names are apart: PATH has the program's folder and the folders of
// the host's system, and nothing that the caller's had, as the PATH that a run sets for Windows has
// for its own programs; TESSEL_MACHINE names the machine of this process, absolute, so that a run
// inside the run services the same one; and TESSEL_RUN_VOLUME_PROGRAMS isn't passed on, since it is
// for this run alone. The variables that Windows has and the host hasn't (SystemRoot, TEMP) have
// values of the machine, and are not passed on.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace platform::posix {

// The name of the host's user, without the domain.
cvn::String UserName();

// The folder of the host's user on the machine; for uid 0 that of the SYSTEM account.
cvn::String UserProfile();

// The folder for the temporary files of the host's user on the machine.
cvn::String TemporaryFolder();

// Ends with a null; valid until the next call of environment::Set.
char* const* ChildEnvironment();

// The folders of PATH, as environment::Get has it, in order: split at ';' once it was set, and at
// ':' while it is the host's.
cvn::List<cvn::String> SearchedFolders();

}  // namespace platform::posix
