// References to variables in the texts of a script, "%name%", as far as they can be told from texts
// with percent signs in them.
#pragma once

#include <functional>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

// The first reference in the text; empty when there is none.
cvn::StringView FindReference(cvn::StringView text);

// The names of all references in the text, those in the indices of array elements too. Whatever
// `isKnown` accepts counts as a name, and what looks like one.
cvn::List<cvn::StringView> NamesIn(cvn::StringView text,
                                   const std::function<bool(cvn::StringView name)>& isKnown);

// A variable's name, taken apart where it is that of an array's element.
struct VariableName {
  cvn::StringView name;   // is used as it is written
  cvn::StringView index;  // its references are replaced; empty for no element
};
VariableName ElementName(cvn::StringView name);

}  // namespace tlx
