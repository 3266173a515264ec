// The machine: the folder that is the Windows system volume, drive C:.
//
// TESSEL_MACHINE names the folder; without it, it is tessel/machine in the user's data folder
// ($XDG_DATA_HOME, or ~/.local/share). One that does not exist is made, as machine::Create makes it
// when told nothing; one that exists is taken as it is.
#pragma once

#include <string>

#include "platform/error.h"
#include "support/string.h"

namespace platform::posix {

class Machine {
 public:
  // The machine of this process; found, or made, by the first call.
  static const Machine& Get();

  // Finds, or makes, the folder that the host's environment names now.
  Machine();

  // 0, or why there is no such folder.
  Code State() const { return state_; }
  // The folder as the host names it: absolute, without symbolic links, without a slash at the end
  // (so it is empty when the machine is the host's root).
  const std::string& Root() const { return root_; }

 private:
  Code state_ = kSuccess;
  std::string root_;
};

// The host's name, absolute, of the folder that a tool was told. It may have a drive, which then
// has to be Z:.
Code HostFolder(cvn::StringView folder, std::string* host);

// The name of the host's user, without the domain.
cvn::String UserName();

// The folder of the host's user on the machine; for uid 0 that of the SYSTEM account.
cvn::String UserProfile();

// The folder for the temporary files of the host's user on the machine.
cvn::String TemporaryFolder();

}  // namespace platform::posix
