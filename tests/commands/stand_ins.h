// Processes and services that a test describes, linked in place of the platform's: they are in
// states that a real system can't be brought into, and fail where they are told to.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/services.h"

namespace tessel::testing {

struct ScriptedProcess {
  cvn::String executable;
  cvn::String modulePath;  // empty when it can't be read
};

struct ScriptedSystem {
  // The codes of calls that fail, each by its first word, by that and its number ("query #3"), or
  // by all its words.
  std::map<std::string, platform::Code> codes;
  // What was called: words, and numbers in hexadecimal form.
  std::vector<std::string> calls;
  int openHandles = 0;

  std::vector<ScriptedProcess> processes;  // by their ids, from 0x100 on

  // The one service's state at the first query, then at each one; the last stays.
  std::vector<std::uint32_t> states = {platform::services::kStateStopped};
  // What a stop tells of the state.
  std::uint32_t stateToldByStop = platform::services::kStateStopPending;

  // The calls that begin with `word`.
  std::vector<std::string> Called(const std::string& word) const;
};

// Forgets everything, and gives what the calls work on from now on.
ScriptedSystem& ResetSystem();

}  // namespace tessel::testing
