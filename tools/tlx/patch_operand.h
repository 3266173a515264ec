// The patch and the machine that a command line names.
#pragma once

#include "support/string.h"

namespace tlx {

// The full path of a file or folder that the user named. To be asked before a machine is open.
cvn::String FullPathOf(cvn::StringView operand);

// The same with its drive, so that it still leads there when the machine is open and the current
// directory has turned out to lie on it.
cvn::String PathWithDriveOf(cvn::StringView operand);

// The path of the patch: of the only one in a folder, and a full one. The exit code of a failure
// that it told.
int FindPatch(cvn::StringView operand, cvn::String* patch);

inline constexpr cvn::StringView kNoMachineYet =
    u"there is no machine yet; the first run makes one, which trusts nobody's signatures. "
    u"--machine names another";

// Whether there is no machine, and none was named: the first run makes one.
bool HasNoDefaultMachine();
// The same; then the user is told.
bool IsDefaultMachineMissing();

}  // namespace tlx
