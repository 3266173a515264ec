// A rehearsal in words.
#pragma once

#include "support/containers.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

cvn::StringView WordsFor(platform::machine::ViewKind kind);  // "an overlay"
cvn::StringView WordsFor(platform::machine::ViewEnd end);    // a sentence

// Exit code or what cut the run short, and the last failure, in lines.
cvn::List<cvn::String> DescribeEnd(const Rehearsal& rehearsal);

// For people, in lines, but for its change set.
cvn::List<cvn::String> DescribeRehearsal(const Rehearsal& rehearsal);

}  // namespace tlx
