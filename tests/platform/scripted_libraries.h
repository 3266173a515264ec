// A loader in the test's hands, linked in place of the platform's: it loads what it is told to, and
// fails as it is told to.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/libraries.h"

namespace platform::test {

struct LoadCall {
  cvn::String path;
  std::uint32_t flags;
};

struct ScriptedLibraries {
  bool canNarrowSearch = true;
  cvn::String ownModule;  // that holds any address
  // The one library there is, and what it exports.
  cvn::String path;
  std::map<std::string, libraries::Address> exports;
  // The last error of what fails; the failure itself has this code too, unless it is 0.
  Code failure = kModNotFound;

  std::vector<LoadCall> loads;
  int references = 0;  // that are held
};

// What the loader goes by.
ScriptedLibraries& Libraries();

}  // namespace platform::test
