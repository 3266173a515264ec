// The product that patches belong to: what it is called, and by what Windows knows it.
#pragma once

#include "platform/machine.h"
#include "support/string.h"

namespace tessel::product {

// The usual install folder; its uninstall key tells the real one.
inline constexpr cvn::StringView kInstallFolder = u"C:\\Program Files\\Ambry Shield";

// Below HKEY_LOCAL_MACHINE.
inline constexpr cvn::StringView kUninstallKey =
    u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Ambry Shield";

// Who signs patches: both the common name and the organisation of the certificate.
inline constexpr cvn::StringView kPublisher = u"Corvane SRL";

inline constexpr cvn::StringView kMainService = u"AMSecurityService";
// The service whose folder is a trusted location besides the install folder.
inline constexpr cvn::StringView kUpdateService = u"AmUpdateService";

// The product as a new machine has it.
platform::machine::Product InstalledIn(cvn::StringView folder);

}  // namespace tessel::product
