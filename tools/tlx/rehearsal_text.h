// A rehearsal in words.
#pragma once

#include "support/containers.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

// For people, in lines, but for its change set.
cvn::List<cvn::String> DescribeRehearsal(const Rehearsal& rehearsal);

}  // namespace tlx
