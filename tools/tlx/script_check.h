// What must hold for a script's text before it becomes a patch.
#pragma once

#include <tinyxml.h>

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
// see all of it; nothing when there is none. `document` then holds the script, and its root element
// has an element `script`.
std::optional<ScriptFault> CheckScript(const std::string& script, TiXmlDocument* document);

// Reads the script of that path into `document`, and its text into `text`, unless that is null;
// tells the user of a script that CheckScript or the system refuses. Returns the exit code.
int ReadScript(cvn::StringView path, TiXmlDocument* document, std::string* text = nullptr);

}  // namespace tlx
