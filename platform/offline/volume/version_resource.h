// The version resource of a PE image.
#pragma once

#include "platform/byte_source.h"
#include "support/string.h"

namespace platform::posix {

// As QueryCompanyName, of an image at hand.
bool CompanyNameOf(const ByteSource& source, cvn::String* name);

}  // namespace platform::posix
