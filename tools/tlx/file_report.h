// Changed files, folders and links in words.
#pragma once

#include "tools/tlx/change_report.h"

namespace tlx {

// Adds files, and apart from them what runs left of themselves. `bytes` may be null.
void ReportFiles(const cvn::List<platform::machine::FileChange>& changes,
                 platform::machine::ChangeBytes* bytes, ChangeReport* report);

}  // namespace tlx
