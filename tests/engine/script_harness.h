// Runs scripts inside the test's process.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/script_engine.h"

namespace tessel::testing {

struct ScriptOutcome {
  bool parsed = false;
  std::int32_t loadCode = -1;
  std::int32_t result = 0;         // of Run, when the load succeeded
  std::vector<std::string> trace;  // lines without their stamps

  bool Traced(const std::string& line) const;
  // How many lines begin with `start`.
  int Count(const std::string& start) const;
};

// Runs `body`, the content of a script element, in a patch that has not expired. `commands` that
// only tests have:
//   fail error="TEXT" times="N"   an error command that fails with TEXT (expanded) on its first N
//   executions
ScriptOutcome RunScript(const std::string& body,
                        const cvn::Map<cvn::String, cvn::String>& variables = {});

// The same for a whole document.
ScriptOutcome RunDocument(const std::string& document,
                          const cvn::Map<cvn::String, cvn::String>& variables = {});

}  // namespace tessel::testing
