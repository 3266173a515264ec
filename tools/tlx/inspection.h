// What 'tlx inspect' found out of a patch or a script, and how it tells that.
#pragma once

#include <json/value.h>

#include <optional>

#include "engine/patch_expiry.h"
#include "launcher/patch_metadata.h"
#include "support/containers.h"
#include "support/string.h"
#include "tools/tlx/findings.h"
#include "tools/tlx/patch_input.h"
#include "tools/tlx/script_reading.h"
#include "tools/tlx/verification.h"

namespace tlx {

struct Inspection {
  cvn::String file;  // as it was named
  PatchInput input;
  cvn::String keyFile;  // that deciphered it; empty for the program's own key
  tessel::PatchMetaData header;
  tessel::ExpiryResult dates{};
  ScriptReading reading;
  cvn::List<Finding> faults;                 // for which the runner refuses the script
  std::optional<Verification> verification;  // of its catalog; else
  cvn::String whyNotJudged;                  // tells why there is none
};

// Of the dates: "valid", "expired" or "early".
cvn::StringView StateOf(const tessel::ExpiryResult& dates);

// The words of both outputs.
cvn::StringView NameOf(tessel::Subject subject);
cvn::StringView NameOf(tessel::Use use);

// For people, in lines.
cvn::List<cvn::String> DescribeInspection(const Inspection& inspection);
// As docs/inspect.schema.json describes it.
Json::Value InspectionJson(const Inspection& inspection);

}  // namespace tlx
