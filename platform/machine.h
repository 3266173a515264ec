// The machine: on Linux, the folder that is the Windows system volume being serviced. A process has
// one once it has opened it; before that there is no drive C:, and paths of the host are found all
// the same. On Windows the system itself is the machine, and there is no other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/error.h"
#include "support/containers.h"
#include "support/string.h"

namespace platform::machine {

// A product that a new machine has installed.
struct Product {
  struct Service {
    cvn::String name;  // also of its image in the install folder, with .exe
    cvn::String displayName;
  };

  cvn::String name;  // also of its uninstall key
  cvn::String publisher;
  cvn::String installFolder;    // on drive C:
  cvn::List<Service> services;  // they run as the system, and start with it
};

// A current Windows client, unless told otherwise.
struct Description {
  std::optional<Product> product;
  cvn::String windowsName = u"Windows 10 Pro";
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
// uninstall key, services and install folder, and the trusted roots. 145 when the folder is not
// empty. Everything or, after a failure, nothing is left. 50 on Windows.
Code Create(cvn::StringView folder, const Description& description);

// ERROR_UNRECOGNIZED_VOLUME: a folder that is no Windows system volume, since it has no folder
// Windows\System32\config. An empty one may be where a volume was to be mounted.
inline constexpr Code kUnrecognizedVolume = 1005;

// Opens the machine in a folder. 3 when there is no such folder, 267 when it is none,
// kUnrecognizedVolume, 170 when the process has opened another. 50 on Windows.
Code Use(cvn::StringView folder);

// Opens the machine that the host's environment names: TESSEL_MACHINE, or without it tessel/machine
// in the user's data folder. 3 also when TESSEL_MACHINE is there and empty: what was to name the
// folder has failed. After a failure everything on drive C: fails with the same code. On Windows
// nothing is to be done, and it succeeds.
Code UseDefault();

// The same for a run, which changes the machine: without TESSEL_MACHINE, one that is missing is
// made first, and one that is hibernated gives kHibernated (volume_state.h).
Code UseOrCreateDefault(const Description& description);

// The folder of those two as the host names it, for messages; empty when it can't be told, and on
// Windows.
cvn::String DefaultFolder();

// Closes the opened machine, so that the process may open another: for programs that look at many.
// Nothing of its registry or services may be open any more. What else a process keeps of a machine
// stays that of the first one, and must not be asked for: variables of the environment, display
// names of services, catalogs, INI files. Nothing happens on Windows.
void Leave();

// Whether the registry of the opened machine can be read, as far as a machine can't be serviced
// without: the hives SOFTWARE and SYSTEM. 2 when one is missing, 1009 when it is damaged, or the
// host's code. Always success on Windows.
Code CheckRegistry();

}  // namespace platform::machine
