// Pages of HTML, in UTF-8: one file each, which needs nothing else and is a few megabytes at most.
#pragma once

#include <string>

#include "changes/kept_set.h"
#include "tools/tlx/change_report.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

// Why a command line is refused by which JSON and a page go to standard output.
inline constexpr cvn::StringView kOneOutput =
    u"options '--json' and '--html' can't both write to standard output";

// All of a rehearsal. `report` is of its changes.
std::string RehearsalPage(const Rehearsal& rehearsal, const ChangeReport& report);

// A kept change set. `folder` is its, as it was given.
std::string SetPage(cvn::StringView folder, const tessel::SetRecord& record,
                    const ChangeReport& report);

}  // namespace tlx
