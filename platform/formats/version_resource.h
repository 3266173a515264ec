// The version resource of a PE image: RT_VERSION in the resource section, with the nodes of
// VS_VERSIONINFO in it ("VERSIONINFO resource", "The .rsrc Section" of the PE format).
#pragma once

#include "platform/byte_source.h"
#include "support/string.h"

namespace platform::posix {

// The "CompanyName" in the first language of the translation table; false when there is none.
bool CompanyNameOf(const ByteSource& source, cvn::String* name);

}  // namespace platform::posix
