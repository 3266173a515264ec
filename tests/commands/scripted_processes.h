// The processes of a system in the test's hands, linked in place of the platform's: they end,
// resist and can't be listed as they are told.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/process.h"

namespace tessel::testing {

struct ScriptedProcess {
  cvn::String executable;
  cvn::String modulePath;
  platform::Code openCode = platform::kSuccess;
  platform::Code terminateCode = platform::kSuccess;
  bool isEnded = false;
};

struct ScriptedSystem {
  std::vector<ScriptedProcess> processes;  // by their ids, from 100 on
  platform::Code listCode = platform::kSuccess;
  // Results of the waits, in their order; success for those that follow.
  std::vector<std::uint32_t> waitResults;
  platform::Code startCode = platform::kSuccess;
  platform::Code impersonateCode = platform::kSuccess;
  platform::Code revertCode = platform::kSuccess;

  // What was called: "start [COMMAND LINE] [DIRECTORY]", "wait 1 of 500", "open 100 for 1",
  // "impersonate DOMAIN\USER with PASSWORD", "revert".
  std::vector<std::string> calls;
  int openHandles = 0;
};

// Forgets everything, and gives what the calls work on from now on.
ScriptedSystem& ResetSystem();

}  // namespace tessel::testing
