// The run of the program, from start to exit code.
#pragma once

#include <cstdint>
#include <string>

#include "engine/run_observer.h"
#include "launcher/run_reports.h"
#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// Runs the patch that the command line names; the first argument is the program. Gives the
// process's exit code: a positive reason when the patch was refused, zero or a negative number when
// its script ran. For main, which gives the host platform::stop::EndStatus of it.
std::int32_t RunPatch(const cvn::List<cvn::String>& arguments);

// A run that a tool has made, and learns more of than its exit code. No command line leads here.
struct WatchedRun {
  RunObserver* observer = nullptr;
  // A script in UTF-8 that runs as it is, in the place of the patch that the command line names: it
  // passes no gates, and lies where that patch would. Null for a patch, which passes them.
  const std::string* script = nullptr;

  RunEnd end;
  cvn::String traceFile;
};

// The same for a tool.
std::int32_t RunPatch(const cvn::List<cvn::String>& arguments, WatchedRun* watched);

}  // namespace tessel
