// A rehearsal for programs, and back from there the road that it took.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "tools/tlx/change_report.h"
#include "tools/tlx/flow_road.h"
#include "tools/tlx/rehearsal.h"

namespace tlx {

// How a view was made, as JSON has it: overlay, sharedCopy, plainCopy.
const char* ViewName(platform::machine::ViewKind kind);

// As docs/rehearsal.schema.json describes it. `report` is of its changes.
Json::Value RehearsalJson(const Rehearsal& rehearsal, const ChangeReport& report);

struct RehearsedScript {
  std::string digest;  // see ScriptDigest
  FlowRoad road;
};

// What the JSON of a rehearsal tells of its script. Nothing for what is no such JSON, and for that
// of a run that never had a script.
std::optional<RehearsedScript> ReadRehearsedScript(std::string_view json);

// The SHA-256 of a script's text in UTF-8, without a byte-order mark, in lower-case hexadecimal.
std::string ScriptDigest(std::string_view script);

}  // namespace tlx
