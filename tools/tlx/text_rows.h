// Rows of a title and a text, as the subcommands that judge or read a patch print them.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

// Adds "  title       text", the texts below each other, and control characters in them as \xNN.
void AddRow(cvn::StringView title, cvn::StringView text, cvn::List<cvn::String>* lines);

}  // namespace tlx
