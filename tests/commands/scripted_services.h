// A service manager in the test's hands, linked in place of the platform's: its one service has any
// name and is in the states that it is told.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/services.h"

namespace tessel::testing {

struct ScriptedServices {
  // The service's state at the first query, then at each one; the last stays.
  std::vector<std::uint32_t> states = {platform::services::kStateStopped};
  // What a stop tells of the state.
  std::uint32_t stateToldByStop = platform::services::kStateStopPending;
  // The code of a call that is to fail, by the call's name and its number: "manager", "open",
  // "query", "query 3", "start", "stop", "create", "delete".
  std::map<std::string, platform::Code> codes;

  // What was called, with names and hexadecimal rights: "manager 4", "open name 14", "query",
  // "close service".
  std::vector<std::string> calls;
  platform::services::Config created;

  int Count(const std::string& call) const;
};

// Forgets everything, and gives what the calls work on from now on.
ScriptedServices& ResetServices();

}  // namespace tessel::testing
