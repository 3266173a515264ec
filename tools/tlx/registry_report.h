// Changed keys of the registry in words.
#pragma once

#include "tools/tlx/change_report.h"

namespace tlx {

// Adds keys, services and what is to be done at the next boot.
void ReportKeys(const cvn::List<platform::machine::KeyChange>& changes, ChangeReport* report);

}  // namespace tlx
