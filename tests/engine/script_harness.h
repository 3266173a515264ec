// Runs scripts inside the test's process.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/script_engine.h"

namespace tessel::testing {

using Lines = std::vector<std::string>;

struct ScriptOutcome {
  std::int32_t loadCode = -1;  // of a text that can't be parsed
  std::int32_t result = 0;     // of Run, when the load succeeded
  Lines trace;                 // without stamps

  // The lines of the commands that ran, without an exit's.
  Lines Ran() const;
  // The values that trace commands wrote, each with a '|' behind it.
  std::string Told() const;
};

// Runs `body`, the content of a script element, in a patch that has not expired.
ScriptOutcome RunScript(const std::string& body,
                        const cvn::Map<cvn::String, cvn::String>& variables = {});

std::string Repeat(std::string_view text, int times);

}  // namespace tessel::testing
