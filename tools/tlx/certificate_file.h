// Certificates in PEM files.
#pragma once

#include <cstddef>
#include <vector>

#include "support/containers.h"
#include "support/string.h"

namespace tlx {

// Appends the DER form of every certificate in a file, which must hold one at least. What stands
// between them is ignored. On failure tells the user; returns the exit code.
int ReadCertificates(cvn::StringView path, cvn::List<std::vector<std::byte>>* certificates);

}  // namespace tlx
