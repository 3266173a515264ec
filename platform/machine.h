// The machine: on Linux, the folder that is the Windows system volume being serviced. On Windows
// there is none, and everything here gives 50.
#pragma once

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::machine {

// A current Windows client, unless told otherwise.
struct Description {
  cvn::String installFolder = u"C:\\Program Files\\Ambry Shield";  // of the product; empty for none
  cvn::String productName = u"Windows 10 Pro";
  cvn::String edition = u"Professional";
  cvn::String architecture = u"AMD64";  // as PROCESSOR_ARCHITECTURE has it: AMD64, x86 or ARM64
  std::uint32_t majorVersion = 10;
  std::uint32_t minorVersion = 0;
  std::uint32_t build = 19045;
  bool server = false;
  cvn::List<std::vector<std::byte>> trustedRoots;  // certificates in DER
};

// Makes a machine in a folder that is missing or empty: the folders that every Windows has, the
// hives SOFTWARE, SYSTEM, SAM, SECURITY and DEFAULT, keys of version and control set, the product's
// uninstall key and its services AMSecurityService and AmUpdateService with their images in the
// install folder, and the trusted roots. 145 when the folder is not empty. Everything or, after a
// failure, nothing is left.
Code Create(cvn::StringView folder, const Description& description);

// Makes the folder at `folder` this process's machine, in place of the one that the environment
// names. For a tool that is told the machine; before anything else looks at drive C:.
Code Use(cvn::StringView folder);

}  // namespace platform::machine
