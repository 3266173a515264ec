// What fuzzed scripts may reach.
#pragma once

#include <tinyxml.h>

namespace tessel::fuzz {

// Replaces, in a script's document, whatever could lead a command out of the scratch folder or the
// scratch keys.
void ConfineScript(TiXmlNode* document);

}  // namespace tessel::fuzz
