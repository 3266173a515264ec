// What a run learns of itself, for the reports on it.
#pragma once

#include <cstdint>

#include "support/containers.h"
#include "support/string.h"
#include "trace/trace.h"
#include "trust/caller.h"

namespace tessel {

struct RunFacts {
  // As given; below a trusted location, relative to that.
  void SetScriptPath(cvn::StringView path) {
    TraceLine(u"set script path: %s", path);
    scriptPath = path;
  }

  cvn::List<cvn::String> options;  // asked for on the command line
  cvn::String patchId;
  cvn::String scriptPath;
  cvn::List<cvn::String> tags;
  cvn::String updateServicePath;
  cvn::String installDir;
  cvn::List<ParentProcess> parents;
  std::int64_t expires = 0;  // seconds since 1970; 0 when it isn't known
};

// How a run ended.
struct RunEnd {
  std::int32_t exitCode = 0;    // and the reason that is reported
  cvn::StringView detail = {};  // stands in for the reason's name, unless it is empty
  bool ranScript = false;
};

}  // namespace tessel
