// The version resource of programs and libraries.
#pragma once

#include "support/string.h"

namespace platform {

// The "CompanyName" of a file's version information, in the first language that its translation
// table names (GetFileVersionInfoW, VerQueryValueW). False when the file has none.
bool QueryCompanyName(cvn::StringView path, cvn::String* name);

}  // namespace platform
