// The command line of the program.
#pragma once

#include <span>

#include "support/containers.h"
#include "support/string.h"

namespace tessel {

// What the command line asks for.
struct LaunchSettings {
  const cvn::String* patchFilePath =
      nullptr;                     // into the arguments; null when /encfile was not given
  bool detachMode = false;         // /detach: tell on standard output when the gates are passed
  bool skipInstanceCheck = false;  // /skipInstanceCheck
  cvn::Map<cvn::String, cvn::String> scriptVariables;  // /var
};

enum class LaunchArgument { PatchFile, Diagnostic, Detach, SkipInstanceCheck, Variable };

// A key of the command line, for reading it and for what tells users of it.
struct LaunchArgumentSpec {
  LaunchArgument argument;
  cvn::StringView key;     // without what it may begin with
  cvn::StringView values;  // the names of those that follow it, "KEY VALUE"; empty for none
  cvn::StringView help;
};
std::span<const LaunchArgumentSpec> LaunchArguments();

// Reads `arguments`, of which the first is the program. Keys are found without regard to case, and
// may begin with one '-' or '/'. /diagnostic takes effect at once. `options` gets what was asked
// for, in order, for the reports.
//
// False when an argument isn't understood, with the reason in `errorText`; what came before it
// stays set. Whether /encfile was given at all is not checked.
bool ParseCommandLine(const cvn::List<cvn::String>& arguments, LaunchSettings* settings,
                      cvn::String* errorText, cvn::List<cvn::String>* options);

}  // namespace tessel
