// The certificate table at the end of a signed PE image, as "PE Format" describes it: entries
// (WIN_CERTIFICATE) that each begin at a multiple of eight.
//
// No digest covers the table, so nothing may hide in it. Each entry holds signed data, which is one
// element of DER, and zeros up to the next multiple of eight. Windows checks as much where
// EnableCertPaddingCheck is set.
#pragma once

#include <optional>
#include <vector>

#include "platform/byte_source.h"

namespace platform {

// Where the signed data of each entry stands in the file. Nothing when the table has anything else
// in it, or the file ends before it.
std::optional<std::vector<Range>> ReadCertificateTable(const ByteSource& source, Range table);

// Whether nothing comes behind the table but zeros up to a multiple of eight.
bool EndsFile(const ByteSource& source, Range table);

}  // namespace platform
