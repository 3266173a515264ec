// Events as they lie in the spool folder.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "platform/held_folder.h"
#include "support/string.h"

namespace tlx {

struct SpooledEvent {
  std::int64_t time = 0;  // milliseconds since 1970 UTC
  cvn::String name;
  cvn::String patchId;
  cvn::String reason;
  std::int64_t code = 0;
  std::string line;    // the whole file, without the line feed at its end
  Json::Value fields;  // what the report itself says, an object
};

// The event that a line holds, without a line feed; nothing for what is none.
std::optional<SpooledEvent> ReadEventLine(std::string line);

// Reads a file that `folder` has given. What is wrong with it, for the user; empty when it is an
// event, or when it has gone meanwhile.
cvn::String ReadEventFile(const platform::files::HeldFolder& folder, cvn::StringView name,
                          SpooledEvent* event, bool* isGone);

}  // namespace tlx
