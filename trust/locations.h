// The product's folders, and whether a file lies in one of them.
#pragma once

#include <cstdint>

#include "platform/error.h"
#include "platform/services.h"
#include "support/string.h"

namespace tessel {

// The product's install folder, as its uninstall key has it, else that of its main service; empty
// when neither is known.
cvn::String GetInstallPath();

struct ServiceParams {
  cvn::String displayName;
  cvn::String binaryPath;
  std::uint32_t serviceType = 0;
  std::uint32_t startType = 0;
};

// Fills `params` for a service; false on failure.
bool GetServiceParams(const platform::services::Handle& manager, cvn::StringView serviceName,
                      ServiceParams* params);

// The folder of a service's image, without a separator at its end. Empty when the service can't be
// queried with all rights.
cvn::String GetServiceFolder(cvn::StringView serviceName);

// The folder of a service's image with a backslash at its end; empty when the path has none.
// Arguments behind the image aren't told apart from it. 0 or the platform's code, 1627 for a
// service without a path.
platform::Code GetServiceImageFolder(const platform::services::Handle& manager,
                                     cvn::StringView serviceName, cvn::String* folder);

// Whether the path with this key begins with the folder's key. Characters are compared and not
// names: what begins with C:\a\b lies in C:\a\b, and so does C:\a\bc\d.
bool IsPathUnder(cvn::StringView fileKey, cvn::StringView folder);

// Whether the file lies in the install folder, or in that of the update service. `matchedBase` is
// that folder as its source spells it, and empty on false. Asked anew each time.
bool IsPathInTrustedLocation(cvn::StringView path, cvn::String* matchedBase);

// The key of `path` without the key of `base` that it begins with; the whole key when it doesn't.
cvn::String MakeRelativeToBase(cvn::StringView path, cvn::StringView base);

}  // namespace tessel
