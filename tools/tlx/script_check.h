// What must hold for a script's text before it becomes a patch.
#pragma once

#include <optional>
#include <string>

#include "support/string.h"
#include "tools/tlx/messages.h"

namespace tlx {

struct ScriptFault {
  TextPosition position;
  cvn::String text;
};

// The first reason why the runner would refuse `script` before it looks at a command, or would not
// see all of it; nothing when there is none.
std::optional<ScriptFault> CheckScript(const std::string& script);

}  // namespace tlx
