#include "platform/fetch.h"
#include "platform/windows/wide.h"
// <urlmon.h> needs <windows.h> before it.
#include <urlmon.h>

namespace platform {

std::int32_t Fetch(cvn::StringView url, cvn::StringView path) {
  return ::URLDownloadToFileW(nullptr, windows::Wide(url),
                              windows::Wide(windows::PathForCall(path)), 0, nullptr);
}

}  // namespace platform
