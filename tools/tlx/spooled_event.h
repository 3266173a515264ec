// Events as they lie in the spool folder.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace tlx {

struct SpooledEvent {
  std::int64_t time = 0;  // milliseconds since 1970 UTC
  cvn::String name;
  cvn::String patchId;
  cvn::String reason;
  std::int64_t code = 0;
  std::string line;  // the whole file, without the line feed at its end
};

// The event that a line holds, without a line feed; nothing for what is none.
std::optional<SpooledEvent> ReadEventLine(std::string line);

// A file of the folder that is no event.
struct BrokenEvent {
  cvn::String path;
  cvn::String problem;
};

// Reads the events of a folder, in the order of their times, the newest last. Files that are still
// being written (".tmp") are none, and neither are folders. The code of a folder that can't be
// read.
platform::Code ReadSpool(cvn::StringView folder, cvn::List<SpooledEvent>* events,
                         cvn::List<BrokenEvent>* broken);

}  // namespace tlx
