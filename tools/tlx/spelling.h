// Names in what the user is told.
#pragma once

#include <span>

#include "support/string.h"

namespace tlx {

// "; did you mean 'exit'?" with the one of `names` that is `name` but for case or a slip or two of
// the fingers; empty when there is none.
cvn::String DidYouMean(cvn::StringView name, std::span<const cvn::StringView> names);

// "'onTrue', 'onFalse'"
cvn::String QuotedList(std::span<const cvn::StringView> words);

}  // namespace tlx
