// What a patch says of itself.
#pragma once

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

struct PatchMetaData {
  cvn::String id;
  cvn::String patchType;  // "update", "external", or anything else that its maker wrote
  cvn::String content;    // the whole decrypted script
  cvn::List<cvn::String> tags;
};

// Fills the other fields from the header in `meta->content`. What is missing stays empty, and is
// traced.
void ExtractPatchMetaData(PatchMetaData* meta);

}  // namespace tessel
