// The change set that a command line names.
#pragma once

#include "changes/kept_set.h"
#include "support/string.h"

namespace tlx {

// The path of a new set, without a separator at its end; to be asked before a machine is open,
// since a part of it may lie there. The exit code of a failure that it told, above all when there
// is something of that name.
int FindPlaceOfSet(cvn::StringView operand, cvn::String* folder);

// Reads a set; to be asked before a machine is open. The exit code of a failure that it told.
int ReadSet(cvn::StringView operand, tessel::KeptSet* set);

}  // namespace tlx
