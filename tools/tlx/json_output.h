// What the subcommands print for programs: one JSON object in one line.
#pragma once

#include <json/value.h>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

Json::Value JsonText(cvn::StringView text);
Json::Value JsonTexts(const cvn::List<cvn::String>& texts);

// To standard output, in a line of its own.
void PrintJson(const Json::Value& document);

}  // namespace tlx
