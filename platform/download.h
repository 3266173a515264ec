// Downloads.
#pragma once

#include <cstdint>

#include "support/string.h"

namespace platform {

// Fetches `url` into the file at `path`, as URLDownloadToFileW: http, https, ftp and file. Gives
// its HRESULT: 0, or a negative number such as 0x800C0005 (no such server), 0x800C0004 (connection
// refused), 0x800C0006 (404), 0x800C000D (unknown protocol), 0x80070005 (the file can't be
// written). After a failure no half of a file stands at `path`, and one that stood there before is
// whole.
std::int32_t DownloadToFile(cvn::StringView url, cvn::StringView path);

}  // namespace platform
