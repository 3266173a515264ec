// INI files that the registry stands in for: IniFileMapping, as GetPrivateProfileString documents
// it.
#pragma once

#include <optional>

#include "platform/error.h"
#include "platform/registry.h"
#include "support/string.h"

namespace platform::posix {

// Where the registry has the keys of a section.
struct IniMapping {
  registry::Root root = registry::Root::LocalMachine;
  cvn::String path;           // the key; the INI file's keys are values in it
  bool hidesFile = false;     // what isn't there isn't looked for in the file either ('@')
  bool writesToFile = false;  // a change goes to the file as well ('!')
};

// The mapping of a key of the file, which counts by its name alone. Nothing when the file itself is
// meant. 170 when others have the registry for too long.
Code FindIniMapping(cvn::StringView file, cvn::StringView section, cvn::StringView key,
                    std::optional<IniMapping>* mapping);

// The value of the key that is mapped; nothing when there is none, or one that isn't text.
std::optional<cvn::String> ReadMapped(const IniMapping& mapping, cvn::StringView key);

// Sets it, as text. Makes the key of the registry where it is missing.
Code WriteMapped(const IniMapping& mapping, cvn::StringView key, cvn::StringView value);

}  // namespace platform::posix
