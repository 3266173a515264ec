// What a page tells of a change set: the body of its section, in HTML.
#pragma once

#include <string>

#include "tools/tlx/change_report.h"

namespace tlx {

std::string ChangesBody(const ChangeReport& report);

// "2 files, 1 registry key"; "nothing".
std::string CountsOf(const ChangeReport& report);

}  // namespace tlx
