// The language of scripts as an XML Schema.
#pragma once

#include <string>

namespace tlx {

// The schema, in UTF-8, made from the descriptions of all commands and loops. It is the same in
// each run and on each platform, and ends with a line feed.
std::string ScriptSchema();

}  // namespace tlx
