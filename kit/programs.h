// The programs that test the platform.
#pragma once

#include <map>
#include <string>

#include "kit/cases.h"

namespace kit {

// Runs the tests of these rows, "platform/Suite.Test", in whichever program has them. Files that
// they make are in `folder`.
std::map<std::string, Outcome> RunPrograms(const Kit& kit, const Lines& rows,
                                           const std::wstring& folder);

}  // namespace kit
