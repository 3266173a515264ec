// What a run learns of itself, and the reports on it.
#pragma once

#include <cstdint>

#include "support/containers.h"
#include "support/string.h"
#include "telemetry/run_reporter.h"

namespace tessel {

// How a run ended.
struct RunEnd {
  std::int32_t exitCode = 0;    // and the reason that is reported
  cvn::StringView detail = {};  // stands in for the reason's name, unless it is empty
  bool ranScript = false;
};

// The facts, filled in as the run finds them out.
struct RunFacts {
  RunReporter reporter;
  cvn::List<cvn::String> tags;
};

// Raise a report. An event that can't be written is told in the trace, and changes nothing else.
void ReportRun(RunFacts* facts, const RunEnd& end);
void ReportCriticalIssue(const RunFacts& facts, std::int32_t reason);

}  // namespace tessel
