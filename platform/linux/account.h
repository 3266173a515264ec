// The account that this process runs as.
#pragma once

#include <string>

namespace platform::posix {

struct Account {
  std::string name;  // the number, when the user database does not know the account
  std::string home;  // empty then
};

// The host's record of the effective user.
Account HostAccount();

// Whether this process may change files and folders whoever owns them (CAP_FOWNER and
// CAP_DAC_OVERRIDE): root may, but the root of some containers may not.
bool OverridesOwners();

}  // namespace platform::posix
