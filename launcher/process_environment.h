// What the process sets up before it does anything else.
#pragma once

namespace tessel {

// Sets PATH to the program's folder and the system folder, and keeps the PATH that the first
// program of a chain of them found in CVN_AMS_OLD_PATH, for what a script starts. On Linux what is
// started gets the host's counterpart of that PATH (platform/process.h).
void ApplyProcessEnvironment();

// Asks for every privilege that a script may need. What the account doesn't hold stays absent.
void EnablePrivileges();

}  // namespace tessel
