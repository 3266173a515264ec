// The file that is sent back.
#pragma once

#include <map>
#include <string>

#include "kit/cases.h"

namespace kit {

using Outcomes = std::map<std::string, Outcome>;

// Writes the report, into the first of the folders that it can be written to. Gives its path, or
// nothing.
std::wstring WriteReport(const Kit& kit, const std::string& version, const Outcomes& outcomes,
                         const std::vector<std::wstring>& folders);

}  // namespace kit
