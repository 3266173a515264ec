// The short names that files have beside their own, for programs that know no others.
#pragma once

#include "support/string.h"

namespace platform::posix {

// Whether a name has the form of a short one, as RtlIsNameLegalDOS8Dot3 has it: up to eight
// characters, and up to three after the only dot if there is one; no part ends with a blank.
// Windows makes such names with a '~', but any can be given.
bool IsShortForm(cvn::StringView name);

// Whether a short name may match a pattern: what stands in the pattern beside its wildcards has to
// fit in one.
bool MayMatchShortForm(cvn::StringView pattern);

}  // namespace platform::posix
